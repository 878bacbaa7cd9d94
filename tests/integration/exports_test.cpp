// The binary contract: exactly the implemented proxies (and
// CamX::SetErrorFrameworkId once implemented) leave the library, under their
// C++ names, and each resolves by name as the framework core looks it up.
#include <cxxabi.h>
#include <elf.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include "harness.h"

namespace {

// The library's whole exported surface: the 19 proxies and SetErrorFrameworkId.
const std::set<std::string> kImplemented = {
    "GetStaticCapsHook",
    "SensorProbeHook",
    "InitializeSensorDeviceHook",
    "LoadSensorInitConfigCmdHook",
    "LoadSensorConfigCmdsHook",
    "SensorCreateAndSubmitCommandHook",
    "CreateI2CInfoCmdHook",
    "EEPROMDataProbeHook",
    "ProbeEEPROMHook",
    "ReadEEPROMDeviceHook",
    "EEPROMVerifyChecksumHook",
    "ActuatorDataHook",
    "OISRegisterProviderHook",
    "OISCreateI2CInfoCmdHook",
    "ReadLensPositionDataHook",
    "FormatLensPositionDataHook",
    "PostGyroDataHook",
    "CSLMessageHandlerHook",
    "ProcessCaptureRequestHook",
    "SetErrorFrameworkId",
};

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

TEST(ExportsTest, ExportedSetIsExactlyTheImplementedFunctions) {
  std::set<std::string> expected;
  for (const std::string& name : kImplemented) {
    const sim::CatalogueEntry* entry = sim::FindCatalogueEntry(name);
    ASSERT_NE(entry, nullptr) << name;
    expected.insert(entry->mangled);
  }
  const std::set<std::string> exported = DefinedDynamicSymbols(sim::HookLibraryPath());
  ASSERT_FALSE(exported.empty()) << "no dynamic symbols read from " << sim::HookLibraryPath();
  std::vector<std::string> readable;
  for (const std::string& symbol : exported) readable.push_back(Demangle(symbol.c_str()));
  EXPECT_EQ(exported, expected) << "exported: " << ::testing::PrintToString(readable);
}

TEST(ExportsTest, CatalogueNamesAreTheProxiesCppNames) {
  for (const sim::CatalogueEntry& entry : sim::Catalogue()) {
    EXPECT_EQ(Demangle(entry.mangled), entry.signature) << entry.name;
    EXPECT_NE(std::string(entry.signature).find(std::string("CamX::") + entry.name + "("), std::string::npos);
  }
  EXPECT_EQ(sim::Catalogue().size(), 20u);
}

TEST(ExportsTest, EveryImplementedFunctionResolvesByName) {
  std::string error;
  auto library = sim::HookLibrary::Load(sim::HookLibraryPath(), &error);
  ASSERT_TRUE(library) << error;
  for (const sim::CatalogueEntry& entry : sim::Catalogue()) {
    const bool implemented = kImplemented.count(entry.name) != 0;
    EXPECT_EQ(library->Symbol(entry.mangled) != nullptr, implemented) << entry.signature;
  }
}

}  // namespace
