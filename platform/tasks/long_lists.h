// The long lists of a request, kept apart from the rest of a record's "data".
//
// A request may name many thousands of sources. They stand in the "params" of "data", never
// change, and are read by few; all else in "data" is small, written again and again, and
// read by every poll. So long lists are written once, as a property of their own, and only
// who asks for the whole of "data" reads them.
//
// Servers that do not know this show such a task without its sources. What they have
// written, with the lists in "data", is read as it is and taken apart when next written.
#pragma once

#include <json/value.h>

#include <string>

namespace tasks::internal {

// The property that holds them: an object of members of "params".
inline constexpr const char* kLongLists = "data.params";

// Takes the long lists out of `data`: null when it has none. Lists that stand in the record
// already stay there when "data" is written without them.
Json::Value TakeLongLists(Json::Value* data);

// Puts stored ones back. Damaged text makes `data` null, as its own would.
void PutLongLists(const std::string& text, Json::Value* data);

}  // namespace tasks::internal
