// The table of verbs, which parser, help, completion and manual pages follow. A verb lives in a
// file of its own as one constant record; verbs.cpp lists it.
#pragma once

#include "tools/options.h"

#include <span>
#include <string>
#include <string_view>

namespace kx {

struct Verb {
    const char* name;
    const char* alias;    // another name, null for none
    const char* synopsis; // what follows the name
    const char* summary;  // one line, without a full stop
    std::span<const Option> options;
    int (*run)(); // the options have been read into their targets; returns the exit status
};

std::span<const Verb* const> verb_table();

/// By name or alias; null for none.
const Verb* verb_find(std::string_view name);

/// The options of every verb.
std::span<const Option> global_options();

} // namespace kx
