#include "client/interface/message.h"

#include <cstring>

namespace {

template <typename T>
T Locked(std::recursive_mutex& mutex, const T& field) {
  std::lock_guard<std::recursive_mutex> lock(mutex);
  return field;
}

}  // namespace

MessageData::MessageData(const MessageData& other) { *this = other; }

MessageData::~MessageData() { delete[] m_pBuffer; }

// Copies field by field, each source read under the source's lock. A buffer is
// copied only when the source is a buffer with bytes; the size is copied
// whatever the type, so a non-buffer source overwrites the size and keeps this
// record's buffer. The framework reads records this way; keep the asymmetry.
MessageData& MessageData::operator=(const MessageData& other) {
  if (this == &other) return *this;
  const uint32_t type = Locked(other.m_mutex, other.m_type);
  {
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    m_type = type;
  }
  if (type == kMessageDataBuffer) {
    // The bytes are taken under the source's lock alone, then installed under
    // this record's lock alone: no two records are ever locked together.
    uint8_t* copy = nullptr;
    uint64_t sourceSize = 0;
    {
      std::lock_guard<std::recursive_mutex> sourceLock(other.m_mutex);
      sourceSize = other.m_bufferSize;
      if (other.m_pBuffer != nullptr && sourceSize != 0) {
        copy = new uint8_t[sourceSize];
        std::memcpy(copy, other.m_pBuffer, sourceSize);
      }
    }
    if (copy != nullptr) {
      std::lock_guard<std::recursive_mutex> lock(m_mutex);
      delete[] m_pBuffer;
      m_pBuffer = copy;
      m_bufferSize = sourceSize;
      m_type = kMessageDataBuffer;
    }
  }
  std::string text = Locked(other.m_mutex, other.m_string);
  const uint32_t intValue = Locked(other.m_mutex, other.m_int);
  const int64_t int64Value = Locked(other.m_mutex, other.m_int64);
  const float floatValue = Locked(other.m_mutex, other.m_float);
  const uint64_t size = Locked(other.m_mutex, other.m_bufferSize);
  std::lock_guard<std::recursive_mutex> lock(m_mutex);
  m_string = std::move(text);
  m_int = intValue;
  m_int64 = int64Value;
  m_float = floatValue;
  m_bufferSize = size;
  return *this;
}

void MessageData::SetString(const std::string& value) {
  std::lock_guard<std::recursive_mutex> lock(m_mutex);
  m_string = value;
  m_type = kMessageDataString;
}

void MessageData::SetInt(uint32_t value) {
  std::lock_guard<std::recursive_mutex> lock(m_mutex);
  m_int = value;
  m_type = kMessageDataInt;
}

void MessageData::SetInt64(int64_t value) {
  std::lock_guard<std::recursive_mutex> lock(m_mutex);
  m_int64 = value;
  m_type = kMessageDataInt64;
}

void MessageData::SetFloat(float value) {
  std::lock_guard<std::recursive_mutex> lock(m_mutex);
  m_float = value;
  m_type = kMessageDataFloat;
}

void MessageData::SetBuffer(const uint8_t* bytes, uint64_t size) {
  std::lock_guard<std::recursive_mutex> lock(m_mutex);
  delete[] m_pBuffer;
  m_pBuffer = nullptr;
  m_bufferSize = 0;
  if (bytes != nullptr && size != 0) {
    m_pBuffer = new uint8_t[size];
    std::memcpy(m_pBuffer, bytes, size);
    m_bufferSize = size;
  }
  m_type = kMessageDataBuffer;
}

std::string MessageData::GetString() const { return Locked(m_mutex, m_string); }
uint32_t MessageData::GetInt() const { return Locked(m_mutex, m_int); }
int64_t MessageData::GetInt64() const { return Locked(m_mutex, m_int64); }
float MessageData::GetFloat() const { return Locked(m_mutex, m_float); }
uint32_t MessageData::GetType() const { return Locked(m_mutex, m_type); }
uint64_t MessageData::GetBufferSize() const { return Locked(m_mutex, m_bufferSize); }
const uint8_t* MessageData::GetBuffer() const { return Locked<uint8_t*>(m_mutex, m_pBuffer); }

Message::Message(const Message& other) : m_name(other.m_name) {
  for (const auto& [key, value] : other.m_data) m_data[key] = value;
}

Message& Message::operator=(const Message& other) {
  if (this == &other) return *this;
  m_name = other.m_name;
  m_data.clear();
  for (const auto& [key, value] : other.m_data) m_data[key] = value;
  return *this;
}
