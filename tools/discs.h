// What the disc verbs share: failures of discs told in kx's way, names of files as they can be
// typed again, the files that patterns stand for, and host files put onto a disc.
#pragma once

#include "files/disc.h"
#include "tools/json.h"

#include <string>
#include <string_view>
#include <vector>

namespace kx {

/// Reports the disc's last failure, with `after` behind its text. Returns the exit status.
int discs_fail(const Disc& disc, const std::string& hint = "", const std::string& after = "");

/// Reports the damage that disc_info has found.
int discs_fail_damaged(const Disc& disc);

/// Opens the image. 0, or the exit status of the failure, which has been reported, with the hint
/// when there is no such file.
int discs_open(Disc& disc, const std::string& path, DiscAccess access,
               const std::string& missing_hint = "");

/// Name and identifier of a disc as they were typed; empty: left alone.
struct DiscsLabel {
    std::string name;
    std::string id; // two codes
};
int discs_set_label(Disc& disc, const DiscsLabel& label);

/// Makes a new image, named after its file unless the label has a name. 0 or the exit status.
struct DiscsFormat {
    DiscsLabel label = {};
    int tracks = 35; // 35, 40 or 42
    bool replace = false;
};
int discs_create(Disc& disc, const std::string& path, const DiscsFormat& format);

/// Puts the changes in place, unless only a dry run is wanted. 0 or the exit status.
int discs_commit(Disc& disc);

/// The numbers of the files that the patterns stand for, each once, in the patterns' order; of all
/// files without patterns. A pattern that stands for none is a failure: the exit status.
int discs_select(Disc& disc, const std::vector<std::string>& patterns, std::vector<int>& numbers);

/// The name with "#xx" for each code that could not be typed otherwise: a pattern for this file.
std::string discs_typed_name(Disc& disc, const DiscEntry& entry);

/// A disc's name without the blanks that fill it up.
std::string discs_trimmed(std::string name);

/// "PRG", "???" for a type without a name.
std::string discs_type(const DiscEntry& entry);

/// {"number":0,"name":"HELLO","name_hex":"48454c4c4f","type":"prg","blocks":1,...}
Json discs_entry_json(const DiscEntry& entry);

/// How host files are put onto a disc.
struct DiscsPut {
    std::string name; // for the only file; empty: from the file's name
    std::string type; // "prg" and so on; empty: by the file's ending
    bool replace = false;
    bool cut = false; // names of more than 16 codes
    bool lock = false;
    bool options = true; // the verb has the options -N and --cut
};

/// Writes the host files, or files "IMAGE:PATTERN" of other images, into `disc`, in memory; what
/// was written is appended to `written` as numbers. 0 or the exit status: the disc is then not to
/// be committed.
int discs_put(Disc& disc, const std::vector<std::string>& files, const DiscsPut& how,
              std::vector<int>& written);

/// Says what stands on the disc now of what was written, as lines and in the JSON.
void discs_tell_written(Disc& disc, const std::vector<int>& written);

} // namespace kx
