#pragma once

#include <string>

namespace movra::tool {

/// Order in which people number files: runs of digits compare by value, so frame_2 comes before frame_10.
/// Names that differ in leading zeros alone are put in plain order.
bool naturalLess(const std::string& a, const std::string& b);

}  // namespace movra::tool
