// CamX::SetErrorFrameworkId: the list of cameras in error, kept in
// "persist.vendor.camera.errorFrameworkId" as framework identifiers
// ("2,3"). The property is the only state; it outlives the process.
#include "hook/src/errorframeworkid.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <map>
#include <sstream>
#include <vector>

#include <cutils/properties.h>

#include "hook/src/hook.h"
#include "hook/src/numberlist.h"

namespace CamX {

namespace {

constexpr size_t kMaxKeptIds = 6;

}  // namespace

void SetErrorFrameworkId(unsigned int id, int isError) noexcept {
  // Camera identifier -> framework identifier, from the contract's table.
  std::map<uint32_t, uint32_t> frameworkIds;
  for (uint32_t camera = 0; camera < std::size(kFrameworkIdOfCamera); ++camera) {
    frameworkIds.emplace(camera, kFrameworkIdOfCamera[camera]);
  }
  // OK: an unknown camera is added with 0 and so maps to 0.
  const int frameworkId = static_cast<int>(frameworkIds[id]);

  char value[PROPERTY_VALUE_MAX] = {};
  property_get(kErrorFrameworkIdProperty, value, "");

  std::vector<int> listed;
  std::istringstream in(value);
  int number = 0;
  // At most six numbers are kept; the rest are dropped at the next rewrite.
  while (in >> number && listed.size() < kMaxKeptIds) {
    listed.push_back(number);
    if (in.peek() == ',') in.ignore();
  }

  const auto found = std::ranges::find(listed, frameworkId);
  if (isError == 0 && found != listed.end()) {
    listed.erase(found);  // only the first of any duplicates
  } else if (isError != 0 && found == listed.end()) {
    listed.push_back(frameworkId);
  } else {
    return;  // already listed, or not listed: the property stays as it is
  }
  // No lock: the property is shared with other processes; a concurrent
  // change can be lost, which the camera HAL tolerates.
  property_set(kErrorFrameworkIdProperty, ArrayToString(listed).c_str());
}

}  // namespace CamX
