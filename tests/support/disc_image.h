// 1541 images made and looked at byte by byte.
#pragma once

#include <initializer_list>
#include <map>
#include <string>

namespace kx::test {

/// The offset of a byte of a block.
std::size_t at(int track, int sector, int byte = 0);

void put(std::string& image, std::size_t offset, const std::string& bytes);
std::string chars(std::initializer_list<int> codes);

/// An image with nothing on it, its map as a drive formats it.
std::string formatted(std::size_t bytes = 174848);

/// A directory slot's bytes from the type on.
std::string slot(int type, int track, int sector, const std::string& name, int blocks);

/// Always the same for the same count.
std::string random_bytes(int count);

/// The files of a disc by the drive's rules, by name; and under "!" a line for each thing that is
/// wrong: a block that two have, or that is free although somebody has it, a chain that is not as
/// long as its slot says, a count that differs from its bits. Blocks that are used without an owner
/// are not, unless `strict`.
std::map<std::string, std::string> files_of(const std::string& image, bool strict);

} // namespace kx::test
