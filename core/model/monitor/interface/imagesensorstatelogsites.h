// The image sensor state record's log sites (see client/interface/logsites.h).
#pragma once

#include "client/interface/logsites.h"

// The path the record's lines report.
inline constexpr char kImageSensorStateReportedFile[] = "core/model/monitor/interface/imagesensorstate.cpp";

// clang-format off
#define REMEDIUM_IMAGE_SENSOR_STATE_LOG_SITES(SITE) \
  /* Image sensor state record. */ \
  SITE(StateUpdateRead, kLogVerbose, kImageSensorStateReportedFile, 100, "UpdateImageSensorStateProperty", "camera id: %d, stage: %s, result: %s, property: %s") \
  SITE(StateUpdateWrite, kLogVerbose, kImageSensorStateReportedFile, 138, "UpdateImageSensorStateProperty", "set property: %s") \
  SITE(StateGetValue, kLogInfo, kImageSensorStateReportedFile, 174, "GetImageSensorState", "property key:%s  string: %s") \
  SITE(StateGetMatch, kLogVerbose, kImageSensorStateReportedFile, 185, "GetImageSensorState", "match: %s, %s, %s, %s")
// clang-format on

REMEDIUM_DEFINE_LOG_SITES(REMEDIUM_IMAGE_SENSOR_STATE_LOG_SITES)
