// Disc images: a table row of operations for each type that has a file system.
#include "files/imgfile.h"

#include "files/d64.h"
#include "files/filetype.h"
#include "ui/msg.h"
#include "util/file.h"

#include <cerrno>
#include <utility>
#include <vector>

namespace kx {

namespace {

constexpr std::int64_t D64_IMAGE_BYTES = IMAGE_BLOCK_BYTES * d64_sectors_before(35 + 1);

int not_implemented(ImageHandle&, const std::string&) {
    msg_error("function not implemented.");
    return -1;
}

struct ImageOperations {
    int type;
    int (*read_directory)(ImageHandle&);
    int (*extract_all)(ImageHandle&);
    int (*extract_file)(ImageHandle&, const std::string& name, const std::string& host_path);
    int (*write_file)(ImageHandle&, const std::string& host_path, const std::string& name);
    int (*delete_file)(ImageHandle&, const std::string& name);
    int (*create)(ImageHandle&, const std::string& name);
    int (*make_directory)(ImageHandle&, const std::string& name);
    int (*remove_directory)(ImageHandle&, const std::string& name);
    int (*print_info)(std::FILE*);
    int (*list_directory)(std::FILE*);
    std::int64_t bytes; // of a whole image
};

constexpr ImageOperations operations[] = {
    {.type = FILETYPE_D64,
     .read_directory = d64_read_directory,
     .extract_all = d64_extract_all,
     .extract_file = d64_extract_file,
     .write_file = d64_write_file,
     .delete_file = d64_delete_file,
     .create = not_implemented,
     .make_directory = not_implemented,
     .remove_directory = not_implemented,
     .print_info = d64_print_info,
     .list_directory = d64_list_directory,
     .bytes = D64_IMAGE_BYTES},
};

/// Null for a type without a file system.
const ImageOperations* find_operations(const ImageHandle& image) {
    for (const ImageOperations& row : operations) {
        if (row.type == image.type) {
            return &row;
        }
    }
    return nullptr;
}

int told(int result, const char* failure) {
    if (result != 1) {
        msg_error("%s", failure);
        return -1;
    }
    return 1;
}

/// Runs one column of the image's row.
template <typename... Params, typename... Args>
int run(const ImageHandle& image, int (*ImageOperations::*operation)(Params...),
        const char* failure, Args&&... args) {
    const ImageOperations* row = find_operations(image);
    return told(row != nullptr ? (row->*operation)(std::forward<Args>(args)...) : -1, failure);
}

int read_directory(ImageHandle& image) {
    const ImageOperations* row = find_operations(image);
    return row != nullptr ? row->read_directory(image) : 1;
}

/// The length when neither it nor an offset was given.
std::int64_t whole_length(const ImageHandle& image, std::FILE* other_type) {
    const ImageOperations* row = find_operations(image);
    if (row != nullptr) {
        return row->bytes;
    }
    return other_type != nullptr ? file_size(other_type) : -1;
}

int fail_remote(const std::string& name) {
    msg_error("couldn't open remote image '%s'.", name.c_str());
    return -1;
}

int open_remote(ImageHandle& image, const std::string& name) {
    if (name.empty() || name == "default") {
        msg_error("couldn't determine default remote image.");
        return -1;
    }
    if (name != "d64") {
        return fail_remote(name);
    }
    image.held = true;
    image.type = FILETYPE_D64;
    image.kind = IMAGE_KIND_HELD;
    return 1;
}

/// By the drive's rules an image is written by one program at a time.
int open_host(ImageHandle& image, const std::string& name, bool writing) {
    image.type = filetype_from_name(name.substr(name.rfind('/') + 1));
    if (target_imgopen(image, name, writing) != 1) {
        return -1;
    }
    if (!writing || image.type != FILETYPE_D64 || d64_dos_mode == 0 ||
        target_imglock(image, name) == 1) {
        return 1;
    }
    if (errno == EWOULDBLOCK) {
        msg_error("image '%s' is in use.", name.c_str());
    } else {
        msg_error("failed to open image '%s' for writing.", name.c_str());
    }
    return -1;
}

int get_range(ImageHandle& image, const std::string& host_path, std::int64_t offset,
              std::int64_t length) {
    // An old file is replaced when all bytes are there, and never the image itself.
    const FilePtr copy(std::tmpfile());
    if (!copy || image_is_file(image, host_path) ||
        target_imgreadfchunk(image, copy.get(), offset, length) != 1) {
        return -1;
    }
    const auto content = [&](std::uint64_t at, std::span<std::uint8_t> bytes) {
        return std::fseek(copy.get(), static_cast<long>(at), SEEK_SET) == 0 &&
               file_read(copy.get(), bytes) == static_cast<long>(bytes.size());
    };
    return file_replace(host_path, static_cast<std::uint64_t>(length), content) == 0 ? 1 : -1;
}

} // namespace

int image_open(ImageHandle& image, const std::string& name, bool remote, bool writing) {
    image = {};
    if ((remote ? open_remote(image, name) : open_host(image, name, writing)) != 1) {
        image = {};
        return -1;
    }
    msg_info("opened image file '%s' type %d.", name.c_str(), image.type);
    if (read_directory(image) != 1) {
        fail_remote(name); // over a link that does not answer
        image = {};
        return -1;
    }
    return 1;
}

void image_close(ImageHandle& image) {
    target_imgclose(image);
    image = {};
}

int imgfile_putrawimg(ImageHandle& image, const std::string& host_path, std::int64_t offset,
                      std::int64_t length) {
    msg_info("imgfile_putrawimg\n");
    const FilePtr file = file_open(host_path, "rb");
    if (offset == 0 && length == 0) {
        length = whole_length(image, file.get());
    }
    const int result =
        file ? target_imgwritefchunk(image, file.get(), offset, static_cast<long>(length)) : -1;
    read_directory(image);
    return told(result, "could not write file to image.");
}

int imgfile_getrawimg(ImageHandle& image, const std::string& host_path, std::int64_t offset,
                      std::int64_t length) {
    if (offset == 0 && length == 0) {
        length = whole_length(image, image.file.get());
    }
    if (length > image.access_limit - offset) {
        msg_warning("file '%s' exceeds access limit:%08x offs:%08x end:%08x", host_path.c_str(),
                    static_cast<unsigned>(image.access_limit), static_cast<unsigned>(offset),
                    static_cast<unsigned>(offset + length));
    }
    progress_begin("extracting '%s' (offs:%08x len:%d)... ", host_path.c_str(),
                   static_cast<unsigned>(offset), static_cast<int>(length));
    const int result = get_range(image, host_path, offset, length);
    progress_end(result);
    return told(result, "could not extract image.");
}

int imgfile_extract_all(ImageHandle& image) {
    return run(image, &ImageOperations::extract_all, "could not extract image.", image);
}

int imgfile_extract_file(ImageHandle& image, const std::string& name,
                         const std::string& host_path) {
    return run(image, &ImageOperations::extract_file, "could not extract file.", image, name,
               host_path);
}

int imgfile_write_file(ImageHandle& image, const std::string& host_path, const std::string& name) {
    return run(image, &ImageOperations::write_file, "could not write file to image.", image,
               host_path, name);
}

int imgfile_delete_file(ImageHandle& image, const std::string& name) {
    return run(image, &ImageOperations::delete_file, "could not remove file.", image, name);
}

int imgfile_create(ImageHandle& image, const std::string& name) {
    return run(image, &ImageOperations::create, "could not create image.", image, name);
}

int imgfile_make_directory(ImageHandle& image, const std::string& name) {
    return run(image, &ImageOperations::make_directory, "could not make directory.", image, name);
}

int imgfile_remove_directory(ImageHandle& image, const std::string& name) {
    return run(image, &ImageOperations::remove_directory, "could not remove directory.", image,
               name);
}

int imgfile_print_info(ImageHandle& image, std::FILE* out) {
    return run(image, &ImageOperations::print_info, "could not print info.", out);
}

int imgfile_list_directory(ImageHandle& image, std::FILE* out) {
    return run(image, &ImageOperations::list_directory, "could not list directory.", out);
}

} // namespace kx
