// Builders for the simulated camera metadata (libcamera_metadata.so).
#pragma once

#include <cstdint>
#include <vector>

#include <system/camera_metadata.h>

namespace sim {

camera_metadata_t* NewMetadata();
void FreeMetadata(camera_metadata_t* metadata);
void AddMetadataBytes(camera_metadata_t* metadata, uint32_t tag, const std::vector<uint8_t>& bytes);
void AddMetadataInt32(camera_metadata_t* metadata, uint32_t tag, const std::vector<int32_t>& values);

}  // namespace sim
