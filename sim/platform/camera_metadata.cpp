// libcamera_metadata stand-in: a small tag store with Android's entry record.
#include <cerrno>
#include <cstring>
#include <map>

#include "sim/platform/simmetadata.h"

struct camera_metadata {
  struct Entry {
    uint8_t type;
    size_t count;
    std::vector<uint8_t> bytes;
  };
  std::map<uint32_t, Entry> entries;
};

extern "C" int find_camera_metadata_entry(camera_metadata_t* src, uint32_t tag, camera_metadata_entry_t* entry) {
  if (src == nullptr) return -EINVAL;
  auto it = src->entries.find(tag);
  if (it == src->entries.end()) return -ENOENT;
  if (entry != nullptr) {
    entry->index = static_cast<size_t>(std::distance(src->entries.begin(), it));
    entry->tag = tag;
    entry->type = it->second.type;
    entry->count = it->second.count;
    entry->data.u8 = it->second.bytes.data();
  }
  return 0;
}

namespace sim {

camera_metadata_t* NewMetadata() { return new camera_metadata; }

void FreeMetadata(camera_metadata_t* metadata) { delete metadata; }

void AddMetadataBytes(camera_metadata_t* metadata, uint32_t tag, const std::vector<uint8_t>& bytes) {
  metadata->entries[tag] = {TYPE_BYTE, bytes.size(), bytes};
}

void AddMetadataInt32(camera_metadata_t* metadata, uint32_t tag, const std::vector<int32_t>& values) {
  std::vector<uint8_t> bytes(values.size() * sizeof(int32_t));
  if (!values.empty()) std::memcpy(bytes.data(), values.data(), bytes.size());
  metadata->entries[tag] = {TYPE_INT32, values.size(), bytes};
}

}  // namespace sim
