// SHA-256 (FIPS 180-4), fed in pieces: how ingest knows a report it has seen,
// whatever its file is called or wherever it was found.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace fleet {

class Sha256 {
 public:
  Sha256();
  void Update(std::string_view bytes);
  std::string HexDigest();  // ends the hash: 64 lowercase hexadecimal digits

 private:
  void Block(const uint8_t* block);
  std::array<uint32_t, 8> m_state;
  std::array<uint8_t, 64> m_buffer{};
  size_t m_buffered = 0;
  uint64_t m_length = 0;  // bytes fed
};

// The file's bytes hashed: its digest, or an empty string when it cannot be read (`error` says why).
std::string HashFile(const std::string& path, std::string* error);

}  // namespace fleet
