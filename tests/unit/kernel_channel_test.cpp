// The kernel probe-result channel over the simulated module parameter file.
#include <unistd.h>

#include <climits>
#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hook/src/kernelchannel.h"
#include "hook/src/numberlist.h"
#include "sim/platform/simdevice.h"
#include "tests/support/fresh_process.h"
#include "tests/support/log_matchers.h"

namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::IsEmpty;

constexpr char kPath[] = "/sys/module/camera/parameters/sensor_apply_settings_control";

// Distinct non-zero values, signed and beyond 32 bits, so that any stray
// change or narrowing shows.
std::vector<long> Numbered(size_t count) {
  std::vector<long> values;
  for (size_t i = 0; i < count; ++i) values.push_back((i % 2 ? -1 : 1) * (static_cast<long>(i) * 100 + 7));
  if (count < 64) return values;
  values[1] = -4294967297L;
  values[33] = 4294967296L;
  values[40] = LONG_MIN;
  values[63] = LONG_MAX;
  return values;
}

void WriteKernelFile(const std::vector<long>& values) {
  sim::WriteDeviceFile(kPath, CamX::ArrayToString64(values) + "\n");  // sysfs ends its value with "\n"
}

// The single 1024-byte write: its text, checked for NUL padding.
std::string OnlyWrittenText() {
  const std::vector<sim::SysfsWrite> writes = sim::SysfsWrites();
  if (writes.size() != 1) {
    ADD_FAILURE() << writes.size() << " writes";
    return {};
  }
  const std::string& bytes = writes[0].bytes;
  EXPECT_EQ(writes[0].devicePath, kPath);
  EXPECT_EQ(bytes.size(), 1024u);
  const std::string text = bytes.substr(0, bytes.find('\0'));
  EXPECT_EQ(bytes.find_first_not_of('\0', text.size()), std::string::npos);
  return text;
}

using KernelChannelTest = test::PhoneTest;

// The set marks the camera's flag and control and clears its init result;
// the reset clears exactly the camera's four entries. Both log what they
// read or wrote.
TEST_F(KernelChannelTest, SetMarksTheCameraAndResetClearsItsFourEntries) {
  std::vector<long> values = Numbered(64);
  WriteKernelFile(values);
  const CamX::ProbeResultTable table = CamX::SetSensorProbeResult(2, 12345);
  values[2] = 1;
  values[18] = 3;
  values[50] = 0;
  EXPECT_EQ(table, values);
  const std::string written = OnlyWrittenText();
  EXPECT_EQ(written, CamX::ArrayToString64(values));
  EXPECT_THAT(test::LogTexts(), ElementsAre(EndsWith("SetSensorProbeResult() read sensor_apply_settings_control: " +
                                                     CamX::ArrayToString64(Numbered(64)) + "\n"),
                                            EndsWith("set sensor_apply_settings_control: " + written + ", size: 0")));
  sim::ClearSysfsWrites();
  CamX::ResetSensorProbeResult(5);
  for (size_t index : {5, 21, 37, 53}) values[index] = 0;
  EXPECT_EQ(OnlyWrittenText(), CamX::ArrayToString64(values));
  EXPECT_THAT(test::LogTexts().back(),
              EndsWith("ResetSensorProbeResult() set sensor_apply_settings_control: " + CamX::ArrayToString64(values)));
  EXPECT_EQ(CamX::ReadSensorProbeResult(5), values);
}

TEST_F(KernelChannelTest, OtherThan64ValuesIsNeverWrittenBack) {
  WriteKernelFile(Numbered(63));
  EXPECT_EQ(CamX::ReadSensorProbeResult(0), Numbered(63));
  EXPECT_EQ(CamX::SetSensorProbeResult(0, 0), Numbered(63));
  CamX::ResetSensorProbeResult(0);
  EXPECT_THAT(sim::SysfsWrites(), IsEmpty());

  WriteKernelFile(Numbered(70));  // only the first 64 count
  EXPECT_EQ(CamX::ReadSensorProbeResult(0), Numbered(64));
  EXPECT_EQ(CamX::SetSensorProbeResult(1, 0).size(), 64u);
  EXPECT_EQ(CamX::StringToArray64(OnlyWrittenText(), 0).size(), 64u);
}

TEST_F(KernelChannelTest, OpenFailureIsLoggedEmptyOrUnreadableFileIsNot) {
  EXPECT_THAT(CamX::SetSensorProbeResult(0, 0), IsEmpty());
  EXPECT_THAT(CamX::ReadSensorProbeResult(0), IsEmpty());
  CamX::ResetSensorProbeResult(0);
  const std::string failure =
      "Failed to open /sys/module/camera/parameters/sensor_apply_settings_control: "
      "errnoStr: No such file or directory";
  EXPECT_THAT(test::LogTexts(),
              ElementsAre(EndsWith("SetSensorProbeResult() " + failure), EndsWith("ReadSensorProbeResult() " + failure),
                          EndsWith("ResetSensorProbeResult() " + failure)));
  sim::ClearLog();
  sim::WriteDeviceFile(kPath, "");
  EXPECT_THAT(CamX::SetSensorProbeResult(0, 0), IsEmpty());
  EXPECT_THAT(CamX::ReadSensorProbeResult(0), IsEmpty());
  CamX::ResetSensorProbeResult(0);
  sim::RemoveDeviceFile(kPath);
  sim::WriteDeviceFile(std::string(kPath) + "/x", "");  // a directory: opens read-only, fails to read
  EXPECT_THAT(CamX::ReadSensorProbeResult(0), IsEmpty());
  EXPECT_THAT(test::LogTexts(), IsEmpty());
  EXPECT_THAT(sim::SysfsWrites(), IsEmpty());
}

// The channel runs on every probe of a long-lived camera process: whatever
// the parameter holds, no operation may keep its descriptor.
TEST_F(KernelChannelTest, EveryOperationClosesItsDescriptor) {
  const auto openDescriptors = [] {
    size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) ++count;
    return count;
  };
  for (const size_t values : {64, 63, 70, 0}) {
    if (values == 0) {
      sim::WriteDeviceFile(kPath, "");
    } else {
      WriteKernelFile(Numbered(values));
    }
    const size_t before = openDescriptors();
    for (uint32_t camera = 0; camera < 4; ++camera) {
      CamX::ReadSensorProbeResult(camera);
      CamX::SetSensorProbeResult(camera, 0);
      CamX::ResetSensorProbeResult(camera);
    }
    EXPECT_EQ(openDescriptors(), before) << values << " values";
  }
  sim::RemoveDeviceFile(kPath);
  sim::WriteDeviceFile(std::string(kPath) + "/x", "");
  const size_t before = openDescriptors();
  CamX::ReadSensorProbeResult(0);
  EXPECT_EQ(openDescriptors(), before) << "unreadable parameter";
}

TEST_F(KernelChannelTest, ResetTrapsOnReadError) {
  sim::LinkDeviceFile(kPath, "/proc/self/mem");  // opens read-write, every read at 0 fails
  EXPECT_THAT(CamX::SetSensorProbeResult(0, 0), IsEmpty());
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(CamX::ResetSensorProbeResult(0), test::KilledByTrap(), "");
}

// Descriptor 0 counts as an open failure for the set but not for the reset.
TEST_F(KernelChannelTest, DescriptorZeroFailsSetButNotReset) {
  EXPECT_IN_FRESH_PROCESS([] {
    WriteKernelFile(Numbered(64));
    close(STDIN_FILENO);
    EXPECT_THAT(CamX::SetSensorProbeResult(3, 0), IsEmpty());
    EXPECT_THAT(test::LogTexts(), ElementsAre(::testing::HasSubstr("Failed to open")));
    EXPECT_EQ(CamX::SetSensorProbeResult(3, 0).size(), 64u);  // descriptor 0 was left open
  });
  EXPECT_IN_FRESH_PROCESS([] {
    WriteKernelFile(Numbered(64));
    close(STDIN_FILENO);
    CamX::ResetSensorProbeResult(3);
    EXPECT_EQ(CamX::StringToArray64(OnlyWrittenText(), 0)[3], 0);
  });
}

}  // namespace
