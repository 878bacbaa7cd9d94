// Log sites of the proxies and their helpers. The maker's log tools expect the
// hooks' lines to name "hook.cpp", whichever file the code sits in; sites with
// a line fixed by the log contract pass it explicitly.
#pragma once

#include "client/interface/remediumlog.h"

namespace CamX {
inline constexpr char kHookSourceFile[] = "hook/src/hook.cpp";
}

#define HOOK_LOG(level, ...) RemediumLog(level, ::CamX::kHookSourceFile, __LINE__, __func__, __VA_ARGS__)
#define HOOK_LOG_AT(level, line, ...) RemediumLog(level, ::CamX::kHookSourceFile, line, __func__, __VA_ARGS__)
