// Records sent through the message centre: a named, ordered map of typed
// values. The message centre is a separate binary that reads these records,
// so the field order and types are part of the binary contract.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>

// Which value of a MessageData is meant.
enum MessageDataType : uint32_t {
  kMessageDataInt = 0,
  kMessageDataInt64 = 1,
  kMessageDataFloat = 2,
  kMessageDataString = 3,
  kMessageDataBuffer = 4,
  kMessageDataNone = 5,  // a newly made record
};

// A tagged value with its own lock; every single field access takes it.
class MessageData {
 public:
  MessageData() = default;
  MessageData(const MessageData& other);
  MessageData& operator=(const MessageData& other);
  ~MessageData();

  void SetString(const std::string& value);
  void SetInt(uint32_t value);
  void SetInt64(int64_t value);
  void SetFloat(float value);
  // Copies `size` bytes into an owned buffer.
  void SetBuffer(const uint8_t* bytes, uint64_t size);

  std::string GetString() const;
  uint32_t GetInt() const;
  int64_t GetInt64() const;
  float GetFloat() const;
  uint32_t GetType() const;
  uint64_t GetBufferSize() const;
  // The owned buffer; valid until the record changes.
  const uint8_t* GetBuffer() const;

 private:
  mutable std::recursive_mutex m_mutex;
  std::string m_string;
  uint32_t m_int = 0;
  int64_t m_int64 = 0;
  float m_float = 0.0f;
  uint8_t* m_pBuffer = nullptr;
  uint64_t m_bufferSize = 0;
  uint32_t m_type = kMessageDataNone;
};

class Message {
 public:
  Message() = default;
  explicit Message(std::string name) : m_name(std::move(name)) {}
  Message(const Message& other);
  Message& operator=(const Message& other);

  std::string m_name;
  std::map<std::string, MessageData> m_data;
};
