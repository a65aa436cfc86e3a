#include "io/StdioFile.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "io/FileStream.h"
#include "io/Media.h"
#include "io/NoCancellation.h"

namespace {

constexpr size_t LongestPiece = 255;

/// Null for an unknown mode.
const char* stdioMode(int mode) {
    switch (mode) {
    case StdioFile::Read: return "r";
    case StdioFile::Write: return "w";
    case StdioFile::WriteAndRead: return "w+";
    case StdioFile::Append: return "a";
    case StdioFile::Update: return "r+";
    default: return nullptr;
    }
}

}  // namespace

StdioFile::~StdioFile() { abandon(); }

/// Gives up what is still held: a stream whose output cannot be written, or the use of a medium
/// whose file was being opened as the thread was cancelled.
void StdioFile::abandon() {
    if (!stream && mediaHandle == -1)
        return;
    const io::NoCancellation scope;
    if (stream)
        std::fclose(stream);
    release();
}

/// Without a stream, gives the use of the medium back.
void StdioFile::release() {
    Media::unmountMedia(mediaHandle);
    mediaHandle = -1;
    stream = nullptr;
}

bool StdioFile::open(const char* path, int mode) {
    close();
    abandon();
    const char* const how = stdioMode(mode);
    mediaHandle = Media::mountMedia(path, mode != Read);
    if (mediaHandle == -1)
        return false;
    if (path && how)
        stream = io::openStream(path, how).release();
    if (!stream) {
        release();
        return false;
    }
    std::setvbuf(stream, buffer, _IOFBF, sizeof buffer);
    return true;
}

bool StdioFile::close() {
    // Written out first: a stream whose fclose() has failed is gone all the same.
    if (!stream || std::fflush(stream) != 0)
        return false;
    const io::NoCancellation scope;
    const bool closed = std::fclose(stream) == 0;
    release();
    return closed;
}

int StdioFile::getSize() {
    if (!stream)
        return -1;
    const long position = std::ftell(stream);
    if (position < 0 || std::fseek(stream, 0, SEEK_END) != 0)
        return -1;
    const long size = std::ftell(stream);
    std::fseek(stream, position, SEEK_SET);
    return size <= INT_MAX ? static_cast<int>(size) : -1;
}

std::string StdioFile::readString() {
    char piece[LongestPiece];
    size_t length = 0;
    while (stream && length < LongestPiece) {
        const int character = getc_unlocked(stream);
        if (character == EOF) {
            if (!std::feof(stream))
                return {};
            break;
        }
        piece[length++] = static_cast<char>(character);
        if (character == '\n')
            break;
    }
    return {piece, length};
}

bool StdioFile::writeString(const char* text) {
    return stream && text && std::fputs(text, stream) != EOF;
}

int StdioFile::readData(void* buf, unsigned int n) {
    if (!stream || !buf)
        return 0;
    return static_cast<int>(std::fread(buf, 1, std::min<unsigned>(n, INT_MAX), stream));
}

bool StdioFile::writeData(const void* buf, unsigned int n) {
    return stream && buf && std::fwrite(buf, 1, n, stream) == n;
}

bool StdioFile::isEOF() { return !stream || std::feof(stream) != 0; }
