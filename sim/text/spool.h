// Texts kept in order, in memory up to 1 MiB and in a temporary file beyond:
// what the end of a long run needs of every step (a report's items, a
// mismatch's lines), without filling memory.
#pragma once

#include <cstddef>
#include <cstdio>
#include <memory>
#include <ostream>
#include <string>

namespace sim::text {

class Spool {
 public:
  // Throws std::runtime_error when the temporary file cannot be made or written.
  void Add(const std::string& text);
  size_t size() const { return m_count; }  // texts added
  void CopyTo(std::ostream& out) const;
  std::string Text() const;

 private:
  std::string m_memory;
  std::shared_ptr<std::FILE> m_file;  // once the texts outgrow memory
  size_t m_count = 0;
};

}  // namespace sim::text
