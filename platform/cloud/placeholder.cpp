// Replaced by the library's sources.
