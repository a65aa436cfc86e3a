#pragma once

#include <string>
#include <string_view>
#include <vector>

/// One configuration file in memory: sections, called keys, each with named values and comments,
/// and the comments at the head of the file. An application reads it, asks and changes it, and
/// writes it back.
///
/// One thread at a time uses an object.
///
/// Keys are addressed by name or by key ID, their position, and values by name or by value ID,
/// their position in the key. The order is that of the file. A look-up by name compares the name
/// with every one before it, so it takes as long as there are keys, then values in the key: whoever
/// asks for many values of a large file finds the key once and goes on by ID. Adding and deleting
/// moves later IDs. Two keys may have the same name; a look-up finds the first.
///
/// The text of a file, line by line, as the first of the characters ";#[=" in it decides:
///
///     ; comment      or #: all that follows; belongs to the head before the first key
///     [key]          up to the last "]" of the line
///     name=value     all that stands before and after; spaces count
///
/// Anything else is skipped. Nothing is trimmed, quoted or escaped, so a name with "=" in it is not
/// read as it was written. Lines longer than 255 characters are read as several.
class IniFile {
public:
    static constexpr unsigned NotFound = ~0U;  ///< the ID of what is not there

    /// Reads nothing yet.
    explicit IniFile(std::string filePath);
    virtual ~IniFile() = default;

    // NOLINTBEGIN(readability-identifier-naming): the names that applications use

    /// The file's path.
    const std::string& GetPath() const { return path; }

    /// Where ReadFile() and WriteFile() go from now on; what is here stays.
    void SetPath(const std::string& newPath) { path = newPath; }

    /// Whether names are compared in lower case, as they are from the start.
    bool IsCaseInsensitive() const { return caseInsensitive; }

    /// Takes effect with the next look-up.
    void SetCaseInsensitive(bool on) { caseInsensitive = on; }

    /// Adds the file to what is here. False when it cannot be opened or read, when a line begins
    /// with a character that is not printable (what stands before it is here then), and when there
    /// is no key after all of it.
    bool ReadFile();

    /// Replaces the file with what is here, with "\r\n" as line end and every comment behind ";".
    /// False when it cannot be opened, as on a card that is missing or cannot be written. An error
    /// after that goes unnoticed.
    bool WriteFile() const;

    /// Without keys and header comments; path and case stay.
    void Reset();

    /// `s` in the form in which names are compared.
    std::string CheckCase(std::string s) const;

    /// How many there are.
    /// @{
    unsigned GetNumKeys() const { return static_cast<unsigned>(keys.size()); }
    unsigned GetNumHeaderComments() const { return static_cast<unsigned>(headerComments.size()); }
    /// @}

    /// The ID of the first of that name, or NotFound.
    /// @{
    unsigned FindKey(const std::string& name) const;
    unsigned FindValue(unsigned keyID, const std::string& name) const;
    /// @}

    /// By ID. An unknown one gives "" or 0, or `def`.
    /// @{
    std::string GetKeyName(unsigned keyID) const;
    unsigned GetNumValues(unsigned keyID) const;
    std::string GetValueName(unsigned keyID, unsigned valueID) const;
    std::string GetValue(unsigned keyID, unsigned valueID, const std::string& def) const;
    /// @}

    /// Replaces an existing value. Always false, also when it has done so.
    bool SetValue(unsigned keyID, unsigned valueID, const std::string& value);

    /// The comments of a key, by ID. An unknown one gives 0, "" or false.
    /// @{
    unsigned GetNumKeyComments(unsigned keyID) const;
    std::string GetKeyComment(unsigned keyID, unsigned commentID) const;
    bool AddKeyComment(unsigned keyID, const std::string& comment);
    bool DeleteKeyComment(unsigned keyID, unsigned commentID);
    bool DeleteKeyComments(unsigned keyID);
    /// @}

    /// The comments at the head of the file. An unknown ID gives "" or false.
    /// @{
    std::string GetHeaderComment(unsigned commentID) const;
    void AddHeaderComment(const std::string& comment);
    bool DeleteHeaderComment(unsigned commentID);
    /// @}

    /// The same by the name of the key.
    /// @{
    unsigned GetNumValues(const std::string& keyName) const;
    std::string GetValueName(const std::string& keyName, unsigned valueID) const;
    unsigned GetNumKeyComments(const std::string& keyName) const;
    std::string GetKeyComment(const std::string& keyName, unsigned commentID) const;
    bool AddKeyComment(const std::string& keyName, const std::string& comment);
    bool DeleteKeyComment(const std::string& keyName, unsigned commentID);
    bool DeleteKeyComments(const std::string& keyName);
    /// @}

    /// Appends a key without looking for one of that name. Its ID.
    unsigned AddKeyName(const std::string& name);

    /// The value, or `def` when there is none.
    std::string GetValue(const std::string& keyName, const std::string& name,
                         const std::string& def) const;

    /// The number at the start of the value, 0 when there is none there; limited to what an int
    /// holds. Only a missing value gives `def`.
    int GetValueI(const std::string& keyName, const std::string& name, int def) const;

    /// The same. `def` comes back with six decimals, as if it had been stored.
    double GetValueF(const std::string& keyName, const std::string& name, double def) const;

    /// Scans the value, "" when it is missing, as sscanf() does, and gives its result.
    [[gnu::format(scanf, 4, 5)]] int GetValueV(const std::string& keyName, const std::string& name,
                                               const char* format, ...) const;

    /// Stores a value, with `create` also one that is missing, in a key that may be missing. True
    /// when it was stored.
    bool SetValue(const std::string& keyName, const std::string& name, const std::string& value,
                  bool create);

    /// As a decimal number.
    bool SetValueI(const std::string& keyName, const std::string& name, int value, bool create);

    /// With six decimals.
    bool SetValueF(const std::string& keyName, const std::string& name, double value, bool create);

    /// Formats as printf() does, and creates what is missing. A text of 512 characters or more is
    /// refused: false, and nothing is changed.
    [[gnu::format(printf, 4, 5)]] bool SetValueV(const std::string& keyName,
                                                 const std::string& name, const char* format, ...);

    /// False when there is no such value or key. Later ones move down.
    /// @{
    bool DeleteValue(const std::string& keyName, const std::string& name);
    bool DeleteKey(const std::string& keyName);
    /// @}

    // NOLINTEND(readability-identifier-naming)

private:
    struct key {  // NOLINT(readability-identifier-naming): known by this name
        std::vector<std::string> names;
        std::vector<std::string> values;  // parallel to the names
        std::vector<std::string> comments;
    };

    unsigned find(const std::vector<std::string>& names, std::string_view name) const;
    bool store(unsigned keyID, std::string_view name, std::string_view value, bool create);
    void addLine(std::string_view line, unsigned& currentKey);
    bool hasValue(unsigned keyID, unsigned valueID) const;
    bool hasComment(unsigned keyID, unsigned commentID) const;

    bool caseInsensitive = true;
    std::string path;
    std::vector<key> keys;
    std::vector<std::string> keyNames;  // parallel to the keys
    std::vector<std::string> headerComments;
};
