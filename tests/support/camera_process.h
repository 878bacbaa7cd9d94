// A test fixture with a fresh simulated phone whose camera process has the
// hook library loaded and its proxies installed over the simulated HAL.
#pragma once

#include <string>

#include <gtest/gtest.h>

#include "sim/framework/simframework.h"
#include "sim/harness/harness.h"

namespace test {

class CameraProcessTest : public ::testing::Test {
 protected:
  // The core is installed unless a test removes it before the first hook
  // call (the library loads it lazily).
  void SetUp() override {
    sim::framework::InstallCore();
    std::string error;
    m_library = m_phone.StartCameraProcess(&error);
    ASSERT_NE(m_library, nullptr) << error;
  }

  // The proxy exported under `name`, as the core resolves it.
  template <typename Fn>
  Fn* Proxy(const char* name) const {
    Fn* proxy = m_library->Proxy<Fn>(name);
    EXPECT_NE(proxy, nullptr) << name << " is not exported";
    return proxy;
  }

  sim::Phone m_phone;
  sim::HookLibrary* m_library = nullptr;
};

}  // namespace test
