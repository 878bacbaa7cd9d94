// A value shared by HAL threads, reachable only under its own lock.
#pragma once

#include <mutex>
#include <utility>

namespace CamX {

template <typename T>
class Guarded {
 public:
  template <typename... Args>
  explicit Guarded(Args&&... args) : m_value(std::forward<Args>(args)...) {}

  // Runs `fn(value)` under the lock and returns its result.
  template <typename Fn>
  decltype(auto) With(Fn&& fn) {
    std::lock_guard<std::mutex> lock(m_mutex);
    return std::forward<Fn>(fn)(m_value);
  }

 private:
  std::mutex m_mutex;
  T m_value;
};

}  // namespace CamX
