// The binary contract: exactly the functions of the hook catalogue leave the
// library, under their C++ names, each resolves by name as the framework core
// looks it up, and hook/exports.map (the linker's list) names the same set.
#include <cxxabi.h>
#include <elf.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sim/harness/harness.h"

namespace {

// Defined dynamic symbols of an ELF64 shared object.
std::set<std::string> DefinedDynamicSymbols(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  const std::vector<char> file((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::set<std::string> symbols;
  if (file.size() < sizeof(Elf64_Ehdr)) return symbols;
  Elf64_Ehdr header;
  std::memcpy(&header, file.data(), sizeof(header));
  for (int i = 0; i < header.e_shnum; ++i) {
    Elf64_Shdr section;
    std::memcpy(&section, file.data() + header.e_shoff + i * sizeof(Elf64_Shdr), sizeof(section));
    if (section.sh_type != SHT_DYNSYM) continue;
    Elf64_Shdr strings;
    std::memcpy(&strings, file.data() + header.e_shoff + section.sh_link * sizeof(Elf64_Shdr), sizeof(strings));
    for (size_t offset = 0; offset + sizeof(Elf64_Sym) <= section.sh_size; offset += sizeof(Elf64_Sym)) {
      Elf64_Sym symbol;
      std::memcpy(&symbol, file.data() + section.sh_offset + offset, sizeof(symbol));
      const int binding = ELF64_ST_BIND(symbol.st_info);
      if (symbol.st_shndx == SHN_UNDEF || (binding != STB_GLOBAL && binding != STB_WEAK)) continue;
      symbols.insert(file.data() + strings.sh_offset + symbol.st_name);
    }
  }
  return symbols;
}

std::string Demangle(const char* mangled) {
  int status = 0;
  char* text = abi::__cxa_demangle(mangled, nullptr, nullptr, &status);
  std::string result = status == 0 ? text : mangled;
  std::free(text);
  return result;
}

TEST(ExportsTest, ExportedSetIsExactlyTheCatalogue) {
  std::set<std::string> expected;
  for (const sim::CatalogueEntry& entry : sim::Catalogue()) expected.insert(entry.mangled);
  const std::set<std::string> exported = DefinedDynamicSymbols(sim::HookLibraryPath());
  ASSERT_FALSE(exported.empty()) << "no dynamic symbols read from " << sim::HookLibraryPath();
  std::vector<std::string> readable;
  for (const std::string& symbol : exported) readable.push_back(Demangle(symbol.c_str()));
  EXPECT_EQ(exported, expected) << "exported: " << ::testing::PrintToString(readable);

  std::string error;
  auto library = sim::HookLibrary::Load(sim::HookLibraryPath(), &error);
  ASSERT_TRUE(library) << error;
  for (const sim::CatalogueEntry& entry : sim::Catalogue()) {
    EXPECT_NE(library->Symbol(entry.mangled), nullptr) << sim::Signature(entry);
  }
}

// Each catalogue name is the C++ name of its function, and the version
// script's extern "C++" list holds exactly those names.
TEST(ExportsTest, ExportsMapNamesTheCatalogue) {
  std::set<std::string> signatures;
  for (const sim::CatalogueEntry& entry : sim::Catalogue()) {
    const std::string signature = sim::Signature(entry);
    EXPECT_NE(signature.find(std::string("CamX::") + entry.name + "("), std::string::npos) << signature;
    signatures.insert(signature);
  }
  std::ifstream in(REMEDIUM_EXPORTS_MAP);
  std::stringstream text;
  text << in.rdbuf();
  const std::string map = text.str();
  const size_t begin = map.find("extern \"C++\" {");
  ASSERT_NE(begin, std::string::npos) << REMEDIUM_EXPORTS_MAP;
  const std::string list = map.substr(begin, map.find('}', begin) - begin);
  std::set<std::string> listed;
  static const std::regex kQuoted("\"([^\"]+)\";");
  for (auto it = std::sregex_iterator(list.begin(), list.end(), kQuoted); it != std::sregex_iterator(); ++it) {
    listed.insert((*it)[1].str());
  }
  EXPECT_EQ(listed, signatures);
}

}  // namespace
