// The parts of JSON's grammar that the parser reads too freely.
#pragma once

#include <string_view>

namespace webapi {

// False when `text` holds a number or a string that JSON does not allow, such as
// "01", "+1", "1.", a raw control character or half a surrogate pair, or a NUL.
// Says nothing about how values are put together.
[[nodiscard]] bool HasJsonLexis(std::string_view text);

}  // namespace webapi
