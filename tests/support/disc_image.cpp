// 1541 images made and looked at byte by byte.
#include "tests/support/disc_image.h"

#include "files/disc.h"

#include <algorithm>
#include <random>
#include <vector>

namespace kx::test {

std::size_t at(int track, int sector, int byte) {
    const int offset = 256 * (d64_sectors_before(track) + sector) + byte;
    return static_cast<std::size_t>(offset);
}

void put(std::string& image, std::size_t offset, const std::string& bytes) {
    image.replace(offset, bytes.size(), bytes);
}

std::string chars(std::initializer_list<int> codes) {
    return {codes.begin(), codes.end()};
}

std::string formatted(std::size_t bytes) {
    std::string image(bytes, '\0');
    for (int track = 1; track <= 35; track++) {
        const int bits = (1 << disc_sectors(track)) - 1;
        put(image, at(18, 0, 4 * track), chars({disc_sectors(track), bits, bits >> 8, bits >> 16}));
    }
    put(image, at(18, 0, 4 * 18), "\x11\xFC");
    put(image, at(18, 0), chars({18, 1, 'A'}));
    put(image, at(18, 0, 0x90), "WORK DISC" + std::string(9, '\xA0') + "64\xA0" + "2A");
    put(image, at(18, 1), chars({0, 255}));
    return image;
}

std::string slot(int type, int track, int sector, const std::string& name, int blocks) {
    return chars({type, track, sector}) + name + std::string(16 - name.size(), '\xA0') +
           std::string(9, '\0') + chars({blocks, blocks >> 8});
}

std::string random_bytes(int count) {
    std::mt19937 random(static_cast<unsigned>(count));
    std::string bytes(static_cast<std::size_t>(count), '\0');
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(random()); });
    return bytes;
}

namespace {

struct Look {
    const std::string& image;
    std::string wrong = {};
    std::map<std::size_t, std::string> owners = {}; // by offset

    int byte(std::size_t offset) const { return static_cast<unsigned char>(image[offset]); }
    bool free(int track, int sector) const {
        return (byte(at(18, 0, 4 * track + 1 + sector / 8)) >> sector % 8 & 1) != 0;
    }
    void own(int track, int sector, const std::string& who) {
        const auto [place, is_new] = owners.try_emplace(at(track, sector), who);
        const std::string block = std::to_string(track) + "/" + std::to_string(sector);
        wrong += is_new ? "" : block + " of " + place->second + " and " + who + "\n";
        wrong += free(track, sector) ? block + " of " + who + " is free\n" : "";
    }
    /// The chain's data; `blocks` is how long it should be.
    std::string chain(int track, int sector, const std::string& who, int blocks) {
        std::string bytes;
        while (track != 0 && blocks-- > 0 && sector < disc_sectors(track)) {
            own(track, sector, who);
            const std::size_t offset = at(track, sector);
            track = byte(offset);
            sector = byte(offset + 1);
            bytes += image.substr(offset + 2, track != 0 ? 254 : std::max(sector - 1, 0));
        }
        wrong += track != 0 || blocks != 0 ? "the chain of " + who + "\n" : "";
        return bytes;
    }
    void map(bool strict) {
        for (int track = 1; track <= 35; track++) {
            int count = 0;
            for (int sector = 0; sector < disc_sectors(track); sector++) {
                count += free(track, sector) ? 1 : 0;
                wrong += strict && !free(track, sector) && !owners.contains(at(track, sector))
                             ? "lost " + std::to_string(track) + "/" + std::to_string(sector) + "\n"
                             : "";
            }
            wrong += count != byte(at(18, 0, 4 * track)) ? "count " + std::to_string(track) : "";
        }
    }
};

} // namespace

std::map<std::string, std::string> files_of(const std::string& image, bool strict) {
    Look look{.image = image};
    std::map<std::string, std::string> files;
    look.own(18, 0, "header");
    for (int track = 18, sector = 1, left = 19; track != 0 && left-- > 0;) {
        const std::size_t block = at(track, sector);
        look.own(track, sector, "directory");
        for (std::size_t slot = block; slot < block + 256; slot += 32) {
            std::string name = image.substr(slot + 5, 16);
            name.erase(name.find_last_not_of('\xA0') + 1);
            if (look.byte(slot + 2) != 0) {
                files[name] = look.chain(look.byte(slot + 3), look.byte(slot + 4), name,
                                         look.byte(slot + 30) + 256 * look.byte(slot + 31));
            }
        }
        track = look.byte(block);
        sector = look.byte(block + 1);
    }
    look.map(strict);
    if (!look.wrong.empty()) {
        files["!"] = look.wrong;
    }
    return files;
}

} // namespace kx::test
