#include <deque>
#include <map>
#include <memory>

#include "Commands.h"
#include "config/LogFile.h"
#include "io/StdioFile.h"

namespace ctl {
namespace {

const std::map<std::string, LogFile::LogLevel> Levels = {
    {"debug", LogFile::LEVEL_DEBUG},       {"info", LogFile::LEVEL_INFO},
    {"warning", LogFile::LEVEL_WARNING},   {"error", LogFile::LEVEL_ERROR},
    {"critical", LogFile::LEVEL_CRITICAL},
};
constexpr char Letters[] = "DIWEC";  // of the levels in a file
constexpr int MostLines = 1'000'000;

struct Options {
    std::string path;
    std::string text;
    std::string tag;
    std::string level = "info";   // of a line that is added
    std::string least = "debug";  // of those that are shown
    int last = MostLines;
};

struct Line {
    std::string time;
    std::string level;
    std::string tag;
    std::string message;
};

Status append(const Options& options) {
    LogFile log(options.path.c_str());
    if (!log.logPrintf(Levels.at(options.level), options.tag.c_str(), "%s", options.text.c_str()))
        throw Failure(Failed, options.path + " cannot be written");
    return Done;
}

std::string cutField(std::string& line) {
    const size_t end = line.find('|');
    std::string field = line.substr(0, end);
    line.erase(0, end == std::string::npos ? end : end + 1);
    return field;
}

Line parsed(std::string line) {
    line.erase(line.find_last_not_of("\r\n") + 1);
    std::string rest = line;
    Line fields;
    fields.time = cutField(rest);
    fields.level = cutField(rest);
    fields.tag = cutField(rest);
    fields.message = rest;
    // Not a line of such a log: all of it is the message.
    return fields.level.size() == 1 ? fields : Line{"", "", "", line};
}

/// Lines of another form count as the lowest level.
bool isWanted(const Line& line, const Options& options) {
    const size_t level = std::string(Letters).find(line.level);
    return level >= static_cast<size_t>(Levels.at(options.least)) &&
           (options.tag.empty() || options.tag == line.tag);
}

/// A whole line, however long. Empty at the end.
std::string nextLine(StdioFile& file) {
    std::string line;
    while (line.empty() || line.back() != '\n') {
        const std::string piece = file.readString();
        if (piece.empty())
            break;
        line += piece;
    }
    return line;
}

Status show(const Options& options, Output& output) {
    StdioFile file;
    if (!file.open(options.path.c_str(), StdioFile::Read))
        throw Failure(Failed, options.path + " cannot be read");
    std::deque<Line> shown;
    for (std::string text = nextLine(file); !text.empty(); text = nextLine(file)) {
        Line line = parsed(std::move(text));
        if (!isWanted(line, options))
            continue;
        shown.push_back(std::move(line));
        if (shown.size() > static_cast<size_t>(options.last))
            shown.pop_front();
    }
    for (const Line& line : shown)
        output.show(line.level.empty() ? "{message}" : "{time} {level} {tag}: {message}",
                    {{"time", line.time},
                     {"level", line.level},
                     {"tag", line.tag},
                     {"message", line.message}});
    return shown.empty() ? Nothing : Done;
}

}  // namespace

void declareLog(Command command) {
    const auto options = std::make_shared<Options>();
    const auto declareLevel = [](Command taking, std::string& level, const char* what) {
        taking.take("--level", level, what, among(Levels));
    };

    Command appending = command.add("append", "adds a line to a log");
    appending.need("file", options->path, "the log, which may be new");
    appending.need("text", options->text, "the message");
    appending.take("--tag", options->tag, "what it is about");
    declareLevel(appending, options->level, "of the line, info if not given");
    appending.act([options](Output&) { return append(*options); });

    Command showing = command.add("show", "shows lines of a log");
    showing.need("file", options->path, "the log");
    showing.take("--tag", options->tag, "only those with that tag");
    showing.take("--last", options->last, "only so many, the newest", within(1, MostLines));
    declareLevel(showing, options->least, "only those of that level and above");
    showing.act([options](Output& output) { return show(*options, output); });
}

}  // namespace ctl
