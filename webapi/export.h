// Visibility of the plug-in's exported symbols; everything else is hidden.
#pragma once

#define FENNOX_EXPORT __attribute__((visibility("default")))
