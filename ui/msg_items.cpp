// The limit on the length of lists in configuration files.
#include "ui/msg_items.h"

#include "ui/msg.h"

namespace kx {

int msg_items_count(const IniDocument& doc, const std::string& section) {
    const std::uint32_t count = ini_get_number(doc, section, "num");
    if (count <= MSG_ITEMS_MAX) {
        return static_cast<int>(count);
    }
    msg_error("%s: num in section %s is %u, only the first %d items are used.",
              doc.file_name.c_str(), section.c_str(), count, MSG_ITEMS_MAX);
    return MSG_ITEMS_MAX;
}

} // namespace kx
