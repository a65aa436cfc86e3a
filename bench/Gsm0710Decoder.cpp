// The 07.10 frame decoder against the least that its contract allows per frame: the FCS over three
// octets, one allocation of the frame, one of its data, one copy.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "bench/Ratio.h"
#include "gsm/Gsm0710Buffer.h"
#include "gsm/Gsm0710Frame.h"
#include "gsm/Gsm0710Protocol.h"

namespace {

constexpr unsigned int Frames = 16;        // few enough to stay in the cache
constexpr unsigned int FullBuffer = 4095;  // so that every frame is whole when it is looked at
constexpr unsigned int EngineRead = 512;   // the last frame of each read is looked at twice

std::vector<unsigned char> makeFrame(unsigned int length) {
    std::vector<unsigned char> frame{
        gsm0710::Flag, 1U << gsm0710::AddressShift | 3U, gsm0710::Uih,
        static_cast<unsigned char>(length << gsm0710::LengthShift | gsm0710::ExtensionBit)};
    for (unsigned int i = 0; i < length; ++i)
        frame.push_back(static_cast<unsigned char>(i));
    frame.push_back(Gsm0710Buffer::makeCheckSum(&frame[1], 3));
    frame.push_back(gsm0710::Flag);
    return frame;
}

std::vector<unsigned char> makeStream(unsigned int length) {
    const std::vector<unsigned char> frame = makeFrame(length);
    std::vector<unsigned char> stream;
    for (unsigned int i = 0; i < Frames; ++i)
        stream.insert(stream.end(), frame.begin(), frame.end());
    return stream;
}

void decoder(benchmark::State& state) {
    const std::vector<unsigned char> stream = makeStream(static_cast<unsigned int>(state.range(0)));
    const auto readSize = static_cast<size_t>(state.range(1));
    const auto buffer = std::make_unique<Gsm0710Buffer>();
    for (auto _ : state) {
        unsigned int count = 0;
        for (size_t at = 0; at < stream.size(); at += readSize) {
            buffer->write(&stream[at],
                          static_cast<unsigned int>(std::min(readSize, stream.size() - at)));
            while (const auto next = std::unique_ptr<Gsm0710Frame>(buffer->read())) {
                benchmark::DoNotOptimize(next->data.get());
                ++count;
            }
        }
        if (count != Frames)
            state.SkipWithError("frames are missing");
    }
}

void least(benchmark::State& state) {
    const auto length = static_cast<unsigned int>(state.range(0));
    const std::vector<unsigned char> stream = makeStream(length);
    const size_t frameSize = stream.size() / Frames;
    for (auto _ : state) {
        for (size_t at = 0; at < stream.size(); at += frameSize) {
            unsigned char fcs = Gsm0710Buffer::makeCheckSum(&stream[at + 1], 3);
            benchmark::DoNotOptimize(fcs);
            // Nothing may throw: part of the contract, and of what it costs.
            const std::unique_ptr<Gsm0710Frame> made(new (std::nothrow) Gsm0710Frame);
            made->data.reset(new (std::nothrow) unsigned char[length]);
            std::copy_n(&stream[at + 4], length, made->data.get());
            benchmark::DoNotOptimize(made->data.get());
            benchmark::ClobberMemory();
        }
    }
}

BENCHMARK(decoder)->ArgsProduct({{31, 127}, {FullBuffer, EngineRead}});
BENCHMARK(least)->Arg(31)->Arg(127);

}  // namespace

int main(int argc, char** argv) {
    bench::RatioReporter reporter;
    bench::runAll(argc, argv, reporter);
    for (const std::string length : {"31", "127"}) {
        const std::string decoder = "decoder/" + length, least = "least/" + length;
        reporter.printTimes(decoder + "/4095", least, 1.25);
        printf("... and in reads of 512 octets %.3f times as long\n",
               reporter.median(decoder + "/512") / reporter.median(least));
    }
    return reporter.status();
}
