// The mark of what programs outside the build may use: the classes and functions that the shared
// library shows. Everything else in it is hidden.
//
// A class that is marked shows all its members. A header that is installed marks whatever it
// declares and defines elsewhere; packaging/ says which are installed.
#pragma once

#define SEVRIN_EXPORT __attribute__((visibility("default")))

// Takes a class that is a member of a marked one, and private to it, out again.
#define SEVRIN_LOCAL __attribute__((visibility("hidden")))
