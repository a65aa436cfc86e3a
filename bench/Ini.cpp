// Reading, changing and writing an INI file of 200 sections with 20 values each against SimpleIni
// doing the same, and one look-up in its middle.

#define SI_NO_CONVERSION
#include <SimpleIni.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "bench/Ratio.h"
#include "config/IniFile.h"

namespace {

constexpr int Sections = 200;
constexpr int ValuesEach = 20;
constexpr char MiddleKey[] = "Connection 100";
constexpr char MiddleValue[] = "Parameter10";

/// The file of one benchmark, in a temporary place and removed with it.
class File {
public:
    File() {
        close(mkstemp(name.data()));
        std::ofstream text(name);
        for (int section = 0; section < Sections; ++section) {
            text << "[Connection " << section << "]\r\n";
            for (int value = 0; value < ValuesEach; ++value)
                text << "Parameter" << value << "=setting " << section * value << "\r\n";
            text << "\r\n";
        }
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    ~File() { unlink(path()); }

    const char* path() const { return name.c_str(); }

private:
    std::string name = "/tmp/handheld-bench-XXXXXX";
};

void reading(benchmark::State& state) {
    const File file;
    for (auto _ : state) {
        IniFile ini(file.path());
        if (!ini.ReadFile() || ini.GetNumKeys() != Sections)
            state.SkipWithError("not read");
    }
}
BENCHMARK(reading);

void readingWithSimpleIni(benchmark::State& state) {
    const File file;
    for (auto _ : state) {
        CSimpleIniA ini;
        if (ini.LoadFile(file.path()) != SI_OK || ini.GetSectionSize(MiddleKey) != ValuesEach)
            state.SkipWithError("not read");
    }
}
BENCHMARK(readingWithSimpleIni);

void writing(benchmark::State& state) {
    const File file;
    IniFile ini(file.path());
    ini.ReadFile();
    int change = 0;
    for (auto _ : state) {
        if (!ini.SetValueI(MiddleKey, MiddleValue, ++change, false) || !ini.WriteFile())
            state.SkipWithError("not written");
    }
}
BENCHMARK(writing);

void writingWithSimpleIni(benchmark::State& state) {
    const File file;
    CSimpleIniA ini;
    ini.SetSpaces(false);  // the form that the other writes
    ini.LoadFile(file.path());
    long change = 0;
    for (auto _ : state) {
        if (ini.SetLongValue(MiddleKey, MiddleValue, ++change) != SI_UPDATED ||
            ini.SaveFile(file.path(), false) != SI_OK)
            state.SkipWithError("not written");
    }
}
BENCHMARK(writingWithSimpleIni);

void lookUp(benchmark::State& state) {
    const File file;
    IniFile ini(file.path());
    ini.ReadFile();
    for (auto _ : state) {
        if (ini.GetValue(MiddleKey, MiddleValue, "").empty())
            state.SkipWithError("not found");
    }
}
BENCHMARK(lookUp);

void lookUpWithSimpleIni(benchmark::State& state) {
    const File file;
    CSimpleIniA ini;
    ini.LoadFile(file.path());
    for (auto _ : state) {
        if (*ini.GetValue(MiddleKey, MiddleValue, "") == '\0')
            state.SkipWithError("not found");
    }
}
BENCHMARK(lookUpWithSimpleIni);

}  // namespace

int main(int argc, char** argv) {
    bench::RatioReporter reporter;
    bench::runAll(argc, argv, reporter);
    reporter.printTimes("reading", "readingWithSimpleIni", 1.0);
    reporter.printTimes("writing", "writingWithSimpleIni", 1.0);
    printf("one look-up in the middle: %.0f ns, with SimpleIni %.0f ns\n",
           reporter.median("lookUp"), reporter.median("lookUpWithSimpleIni"));
    return reporter.status();
}
