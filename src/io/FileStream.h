#pragma once

#include <cstdio>
#include <memory>
#include <string>

#include "io/NoCancellation.h"

namespace io {

struct FileCloser {
    void operator()(FILE* stream) const {
        NoCancellation scope;
        std::fclose(stream);
    }
};

/// Owns a stdio stream and closes it, also when the owning worker is cancelled.
using FileStream = std::unique_ptr<FILE, FileCloser>;

/// fopen() as openAtOnce() is an open().
inline FileStream openStream(const char* path, const char* mode) {
    NoCancellation scope;
    return FileStream(std::fopen(path, (std::string(mode) + "e").c_str()));
}

}  // namespace io
