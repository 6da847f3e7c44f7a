// What a client asks for by its Accept, Accept-Encoding and Host headers.
#pragma once

#include <string_view>

enum class Format { kText, kOpenMetrics };

// The format that an Accept header prefers: Prometheus text when both are wanted alike, or neither is wanted. Several
// headers are handed over joined by commas; none is "".
Format ChooseFormat(std::string_view accept);

// Whether an Accept-Encoding header wants gzip, and no less than the plain text
bool WantsGzip(std::string_view acceptEncoding);

// Whether a Host header names `address` (a numeric address without brackets), localhost or `hostName` (may be ""). Its
// port may be any: it is another one behind a tunnel.
bool IsOwnHost(std::string_view host, std::string_view address, std::string_view hostName);
