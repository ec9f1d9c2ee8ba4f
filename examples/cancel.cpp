// Reads a file until it ends or somebody has had enough: cancel FILE MILLISECONDS
#include "OpenFile.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

using namespace Quorva;

int main(int argc, char** argv)
try {
    if (argc != 3)
        return std::fputs("usage: cancel FILE MILLISECONDS\n", stderr), 2;
    std::atomic<bool> enough = false;
    OpenFile file(argv[1]);
    // FFmpeg asks this wherever it may take long. What it was doing then ends with AVERROR_EXIT.
    file->interrupt_callback = {
        [](void* flag) { return static_cast<int>(static_cast<std::atomic<bool>*>(flag)->load()); }, &enough};
    const std::jthread other([&, wait = std::chrono::milliseconds(std::atoi(argv[2]))] {
        std::this_thread::sleep_for(wait);
        enough = true;
    });
    const std::unique_ptr<AVPacket, Close> packet(av_packet_alloc());
    int64_t packets = 0;
    while (!enough && file.Read(packet.get()))
        ++packets;
    std::printf("%s after %lld packets\n", enough ? "stopped" : "the end", static_cast<long long>(packets));
} catch (const std::exception& e) {
    std::fprintf(stderr, "%s\n", e.what());
    return 1;
}
