// The front end of disc images, on the host or held by the target: opening one, moving whole
// images, and the operations that the file system of its type carries out.
#pragma once

#include "link/image.h"

#include <cstdint>
#include <cstdio>
#include <string>

namespace kx {

/// Opens the image file `name` or, remote, the image that the target holds, whose only name is
/// "d64". A D64's directory is read; over a link that does not answer the opening fails. In DOS
/// mode (d64.h) a D64 that is opened for writing is locked, and fails to open when somebody else
/// has it. 1, or -1 with an error message and the handle closed.
int image_open(ImageHandle& image, const std::string& name, bool remote, bool writing);

/// Closes what was opened.
void image_close(ImageHandle& image);

/// Copy `length` bytes between a host file and the image from `offset` on. Offset and length 0
/// mean the whole: the 35 tracks of a D64, otherwise all that the file or the image has. Reading
/// beyond the image's access limit is warned about. The image itself is not replaced. A D64 that
/// was written has its directory read again. 1, or -1 with an error message.
int imgfile_putrawimg(ImageHandle& image, const std::string& host_path, std::int64_t offset,
                      std::int64_t length);
int imgfile_getrawimg(ImageHandle& image, const std::string& host_path, std::int64_t offset,
                      std::int64_t length);

// What the image's file system does: 1, or -1 with an error message, also when the image is of a
// type without one. A D64 cannot be created and has no directories.
int imgfile_extract_all(ImageHandle& image);
int imgfile_extract_file(ImageHandle& image, const std::string& name, const std::string& host_path);
int imgfile_write_file(ImageHandle& image, const std::string& host_path, const std::string& name);
int imgfile_delete_file(ImageHandle& image, const std::string& name);
int imgfile_create(ImageHandle& image, const std::string& name);
int imgfile_make_directory(ImageHandle& image, const std::string& name);
int imgfile_remove_directory(ImageHandle& image, const std::string& name);
int imgfile_print_info(ImageHandle& image, std::FILE* out);
int imgfile_list_directory(ImageHandle& image, std::FILE* out);

} // namespace kx
