#include "sim/text/spool.h"

#include <sstream>
#include <stdexcept>

namespace sim::text {
namespace {

constexpr size_t kSpoolMemory = 1 << 20;

}  // namespace

void Spool::Add(const std::string& text) {
  ++m_count;
  if (!m_file && m_memory.size() + text.size() <= kSpoolMemory) {
    m_memory += text;
    return;
  }
  if (!m_file) {
    m_file.reset(std::tmpfile(), [](std::FILE* file) {
      if (file != nullptr) std::fclose(file);
    });
    if (!m_file) throw std::runtime_error("cannot create a temporary file for a long run's records");
    std::fwrite(m_memory.data(), 1, m_memory.size(), m_file.get());
    m_memory.clear();
  }
  if (std::fwrite(text.data(), 1, text.size(), m_file.get()) != text.size()) {
    throw std::runtime_error("cannot write a long run's records to a temporary file");
  }
}

void Spool::CopyTo(std::ostream& out) const {
  if (!m_file) {
    out << m_memory;
    return;
  }
  std::fflush(m_file.get());
  std::rewind(m_file.get());
  char buffer[1 << 16];
  for (size_t got; (got = std::fread(buffer, 1, sizeof(buffer), m_file.get())) > 0;) out.write(buffer, got);
  std::fseek(m_file.get(), 0, SEEK_END);
}

std::string Spool::Text() const {
  std::ostringstream out;
  CopyTo(out);
  return out.str();
}

}  // namespace sim::text
