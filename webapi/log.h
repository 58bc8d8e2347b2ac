// The module's one way into the system log.
#pragma once

namespace Fennox {

inline constexpr const char kModuleName[] = "TAVO.Fennox.CopyMove";

// Logs "MODULE:NUMBER message" at error priority. `number` is the line's fixed
// identifier, `format` a printf format. errno is the same before and after.
void LogError(int number, const char* format, ...) __attribute__((format(printf, 2, 3)));

// The same for a line whose place is written otherwise: `prefix` comes as it is.
void LogErrorWithPrefix(const char* prefix, const char* format, ...)
    __attribute__((format(printf, 2, 3)));

}  // namespace Fennox
