// Bytes of a large address range of which little is used.
#include "util/paged_bytes.h"

#include <cstdio>
#include <cstdlib>
#include <new>

namespace kx {

namespace {

constexpr std::uint32_t OFFSET_IN_PAGE = (1U << PAGED_SHIFT) - 1;

PagedPage& page_of(PagedBytes& bytes, std::uint32_t offset) {
    try {
        std::unique_ptr<PagedPage>& page = bytes.pages[offset >> PAGED_SHIFT];
        if (!page) {
            page = std::make_unique<PagedPage>(); // zeroed
        }
        return *page;
    } catch (const std::bad_alloc&) {
        std::fputs("error: not enough memory for target memory\n", stderr);
        std::exit(-1);
    }
}

} // namespace

std::uint8_t paged_read(const PagedBytes& bytes, std::uint32_t offset) {
    const auto found = bytes.pages.find(offset >> PAGED_SHIFT);
    return found == bytes.pages.end() ? 0 : (*found->second)[offset & OFFSET_IN_PAGE];
}

void paged_write(PagedBytes& bytes, std::uint32_t offset, std::uint8_t value) {
    page_of(bytes, offset)[offset & OFFSET_IN_PAGE] = value;
}

} // namespace kx
