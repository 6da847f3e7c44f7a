// The version of the project, which the build hands over.
#pragma once

inline constexpr char kVersion[] = RYN_VERSION;
