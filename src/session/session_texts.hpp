#pragma once

// The texts of TavrelSDK::getTimestamp() and getUserId(), written into a string the caller
// keeps: once it has grown to the text's length, nothing is allocated. For the watermark,
// which composes "<timestamp>-<user id>" 15 times a second. Any thread.

#include <string>

namespace tavrel {

void assignTimestamp(std::string& into);
void appendUserId(std::string& into);

}  // namespace tavrel
