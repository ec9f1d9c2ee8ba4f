// Reads a file until it ends or another thread stops it: cancel FILE MILLISECONDS
#include "OpenFile.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.Cancellation.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

using namespace Quorva;

int main(int argc, char** argv)
try {
    if (argc != 3)
        return std::fputs("usage: cancel FILE MILLISECONDS\n", stderr), 2;
    Proc::Cancellation cancellation;  // outlives what it stops
    OpenFile file(argv[1]);
    // FFmpeg asks this wherever it may take long. What it was doing then ends with AVERROR_EXIT.
    file->interrupt_callback = cancellation.GetInterruptCallback();
    const std::jthread other([&, wait = std::chrono::milliseconds(std::atoi(argv[2]))] {
        std::this_thread::sleep_for(wait);
        cancellation.RequestStop();  // from any thread, and from a signal handler
    });
    const std::unique_ptr<AVPacket, Close> packet(av_packet_alloc());
    int64_t packets = 0;
    while (!cancellation.IsStopRequested() && file.Read(packet.get()))
        ++packets;
    std::printf("%s after %lld packets\n", cancellation.IsStopRequested() ? "stopped" : "the end",
                static_cast<long long>(packets));
} catch (const std::exception& e) {
    std::fprintf(stderr, "%s\n", e.what());
    return 1;
}
