#pragma once

#include <cstdio>
#include <string>

/// A buffered file that takes part in the bookkeeping of removable media: opening one below the
/// memory card's mount point mounts the card as the use needs it, closing it gives the use back.
///
/// One thread at a time uses an object. A closed file answers every operation with its failure
/// value. Calls block as the file system does.
class StdioFile {
public:
    /// Values of open()'s mode, with the stdio mode behind each.
    enum Mode : int {
        Read = 0,          ///< "r"
        Write = 1,         ///< "w"
        WriteAndRead = 2,  ///< "w+"
        Append = 3,        ///< "a"
        Update = 4         ///< "r+"
    };

    StdioFile() = default;
    StdioFile(const StdioFile&) = delete;
    StdioFile& operator=(const StdioFile&) = delete;

    /// Closes an open file and gives its use of the medium back, also when what was written is
    /// lost.
    virtual ~StdioFile();

    /// Opens `path`; what was open before is closed first. False, with no use of the medium left
    /// behind, when the mode is unknown, the file cannot be opened or its medium not mounted; and
    /// for any path while mounting is disabled.
    bool open(const char* path, int mode);

    /// False when there is no open file. False as well when the rest of the output cannot be
    /// written, as on a full card: the file then stays open, with its use of the medium. And false
    /// when only the system's own close reports an error: the file is closed then all the same.
    bool close();

    /// The file's length in bytes, unwritten output included; -1 when it has none (a pipe), when it
    /// does not fit or when it cannot be told. The position stays; the end-of-file mark is cleared.
    int getSize();

    /// The next line with its line end, or the first 255 characters of what is left of a longer
    /// one. Every byte is kept, NUL too. Empty at the end of the file and on an error, told apart
    /// by isEOF().
    std::string readString();

    /// True when the text was taken; whether it reaches the file may show only at close().
    bool writeString(const char* text);

    /// The number of bytes read: fewer than `n` at the end of the file and on an error.
    int readData(void* buf, unsigned int n);

    /// True when all `n` bytes were taken; see writeString().
    bool writeData(const void* buf, unsigned int n);

    /// True once a read has met the end of the file, and when no file is open.
    bool isEOF();

private:
    void abandon();
    void release();

    FILE* stream = nullptr;
    int mediaHandle = -1;  // of Media; not -1 while this object holds a use
    // The stream's. Without it each open would ask the file for its block size and allocate one:
    // a good part of the time that an open for a single line takes.
    char buffer[BUFSIZ];
};
