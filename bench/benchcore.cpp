// The framework core for the benchmarks, installed where the library loads
// the core from. It answers as a core with no fault injection configured: the
// hook arguments are looked up in a table that stays empty (read without a
// lock, so that threads calling the hooks meet nowhere in the core) and none
// are found; switches are closed; reports are taken and dropped. Nothing is
// recorded, so a run of millions of calls keeps its memory flat.
#include <map>
#include <string>
#include <vector>

#include "client/interface/remediumcore.h"

namespace {

class BenchCore final : public RemediumCore {
 public:
  void CoreOwnSlot0() override {}
  void CoreOwnSlot1() override {}
  bool IsSwitchOpened(int32_t) override { return false; }
  void ProtectionCallback(const CallbackMessage&) override {}
  void CoreOwnSlot4() override {}
  std::vector<std::string> GetHookArguments(const std::string& hookName) override {
    auto it = m_arguments.find(hookName);
    return it == m_arguments.end() ? std::vector<std::string>{} : it->second;
  }
  void CoreOwnSlot6() override {}
  void NotifyHookMessage(const HookNotification&) override {}
  void CoreOwnSlot8() override {}
  void CoreOwnSlot9() override {}
  void CoreOwnSlot10() override {}
  void RecordProbeMessage(const std::string&, bool) override {}

 private:
  const std::map<std::string, std::vector<std::string>, std::less<>> m_arguments;
};

}  // namespace

extern "C" __attribute__((visibility("default"))) RemediumCore* RemediumGetInstance() {
  static BenchCore s_core;
  return &s_core;
}
