// What flows at a moment: packets a second of each conversation, core and link, with what each stage loses.
#pragma once

#include <string>

#include "simhost/host/model.h"

namespace simhost {

// Of the window that the moment is in: the second of host time, or the part of it that the segment has.
std::string RatesAsJson(const Model& model, std::int64_t ms);

}  // namespace simhost
