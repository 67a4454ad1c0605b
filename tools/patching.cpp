// Smart patches on bytes of the host.
#include "tools/patching.h"

#include "core/active_config.h"
#include "core/simulator.h"
#include "ini/ini.h"
#include "link/target_memory.h"
#include "tools/host.h"
#include "tools/nearest.h"
#include "tools/parse.h"
#include "tools/report.h"
#include "ui/msg_items.h"
#include "util/text.h"

#include <algorithm>
#include <cerrno>
#include <unistd.h>

namespace kx {

namespace {

constexpr const char* AUTOMATIC = "patches_auto";

/// A machine of nothing but memory, for as long as it lives.
class PlainMemory {
public:
    explicit PlainMemory(const std::string& patch_file) : before_(active_config), mode_(mem_mode) {
        active_config = {};
        active_config.addr_bits = 32;
        active_config.patch_file = patch_file;
        memory_map_set_type(active_config.memory_map,
                            memory_map_add(active_config.memory_map, 0, 0, UINT32_MAX),
                            MEMORY_RAM_ROM);
        mem_mode = MEM_SIMULATOR;
        ready_ = sim_init() == 1;
    }
    ~PlainMemory() {
        sim_shutdown();
        active_config = before_;
        mem_mode = mode_;
    }
    PlainMemory(const PlainMemory&) = delete;
    PlainMemory& operator=(const PlainMemory&) = delete;
    bool ready() const { return ready_; }

private:
    ActiveConfig before_;
    int mode_;
    bool ready_ = false;
};

bool is_patch(const IniSection& section) {
    return ini_find_item(section, "mlen") != nullptr;
}

int read_patch_file(const std::string& path, IniDocument& document) {
    if (access(path.c_str(), R_OK) != 0) {
        return report_fail(KxError::BadConfig, host_why(path, errno));
    }
    bool found = false;
    if (ini_read(path, document) == 0) {
        for (const IniSection& section : document.sections) {
            found = found || is_patch(section);
        }
    }
    return found ? 0 : report_fail(KxError::BadConfig, path + ": no patches in it");
}

/// The sections that `patches_auto` lists.
std::vector<std::string> automatic_sections(const IniDocument& document) {
    std::vector<std::string> sections;
    const int count =
        ini_find_section(document, AUTOMATIC) != nullptr ? msg_items_count(document, AUTOMATIC) : 0;
    for (int i = 0; i < count; i++) {
        std::string section;
        ini_get_string(document, section, AUTOMATIC, "n" + std::to_string(i));
        sections.push_back(section);
    }
    return sections;
}

int check_sections(const IniDocument& document, const std::vector<std::string>& sections) {
    std::vector<std::string> names;
    for (const IniSection& section : document.sections) {
        names.emplace_back(section.name);
    }
    for (const std::string& section : sections) {
        if (ini_find_section(document, section) == nullptr) {
            const std::string nearest = nearest_word(section, names);
            return report_fail(KxError::NotFound,
                               document.file_name + ": no patch '" + section + "'" +
                                   (nearest.empty() ? "" : "; did you mean '" + nearest + "'?"),
                               "kx patch --list has them");
        }
    }
    return 0;
}

} // namespace

int patching_choose(const std::string& patch_file, std::vector<std::string>& sections) {
    IniDocument document;
    if (const int status = read_patch_file(patch_file, document)) {
        return status;
    }
    if (sections.empty()) {
        sections = automatic_sections(document);
    }
    return check_sections(document, sections);
}

int patching_apply(const std::string& patch_file, const std::vector<std::string>& sections,
                   std::uint32_t address, std::vector<std::uint8_t>& bytes,
                   std::vector<PatchedBy>& applied) {
    std::vector<std::string> wanted = sections;
    if (const int status = patching_choose(patch_file, wanted)) {
        return status;
    }
    const PlainMemory memory(patch_file);
    if (!memory.ready()) {
        return report_fail_library(KxError::BadConfig, "", "no memory for the simulator");
    }
    for (std::size_t i = 0; i < bytes.size(); i++) {
        sim_write8(address + static_cast<std::uint32_t>(i), bytes[i]);
    }
    for (const std::string& section : wanted) {
        if (patch_apply_named(section, address, static_cast<std::uint32_t>(bytes.size())) != 1) {
            return report_fail(KxError::Interrupted, "patching was given up");
        }
        applied.push_back({section, patch_last_result()});
    }
    for (std::size_t i = 0; i < bytes.size(); i++) {
        bytes[i] = sim_read8(address + static_cast<std::uint32_t>(i));
    }
    return 0;
}

int patching_list(const std::string& patch_file, std::vector<PatchInfo>& patches) {
    IniDocument document;
    if (const int status = read_patch_file(patch_file, document)) {
        return status;
    }
    const std::vector<std::string> automatic = automatic_sections(document);
    for (const IniSection& section : document.sections) {
        if (is_patch(section)) {
            PatchInfo patch{std::string(section.name), "", false};
            ini_get_string(document, patch.name, section.name, "name");
            patch.automatic = std::ranges::count(automatic, patch.section) > 0;
            patches.push_back(patch);
        }
    }
    return 0;
}

std::string patching_text(const PatchedBy& patch) {
    const PatchResult& result = patch.result;
    std::string text = (result.name.empty() ? patch.section : result.name) + ": " +
                       text_count(static_cast<std::uint64_t>(result.count), "place");
    for (const std::uint32_t& address : result.addresses) {
        text += (&address == result.addresses.data() ? ": " : " ") + address_text(address);
    }
    return text + (result.addresses.size() < static_cast<std::size_t>(result.count) ? " ..." : "");
}

} // namespace kx
