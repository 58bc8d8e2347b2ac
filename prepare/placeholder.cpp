// Replaced by the folder's sources.
