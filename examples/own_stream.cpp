// Reads a container through a stream of one's own, here a C++ stream: own_stream FILE
#include "OpenFile.h"

#include <cstdio>
#include <fstream>

using namespace Quorva;

/// What the library asks of an input. An exception is the way to say that reading fails.
class StreamInput final : public RefCounted<Core::IDataInput> {
public:
    explicit StreamInput(std::string path) : name(std::move(path)), file(name, std::ios::binary)
    {
        if (!file)
            Fail<Core::IOException>(name + ": can't be opened");
        size = static_cast<uint64_t>(file.seekg(0, std::ios::end).tellg());
        file.seekg(0);
    }
    uint64_t Read(uint8_t* buffer, uint64_t wanted) override
    {
        file.read(reinterpret_cast<char*>(buffer), static_cast<std::streamsize>(wanted));
        if (file.bad())
            Fail<Core::IOException>(name + ": can't be read");
        file.clear();  // the end is no failure
        position += static_cast<uint64_t>(file.gcount());
        return static_cast<uint64_t>(file.gcount());
    }
    uint64_t GetSize() override { return size; }
    uint64_t MoveBy(int64_t offset) override
    {
        MoveTo(position + static_cast<uint64_t>(offset));
        return position;
    }
    void MoveTo(uint64_t target) override
    {
        if (target > static_cast<uint64_t>(INT64_MAX))
            Fail<Core::IOException>(name + ": no such position");
        file.seekg(static_cast<std::streamoff>(target));
        position = target;
    }
    const std::string& GetName() const noexcept override { return name; }

private:
    const std::string name;
    std::ifstream file;
    uint64_t size = 0, position = 0;
};

int main(int argc, char** argv)
try {
    OpenFile file(MakeRefCounted<StreamInput>(argc > 1 ? argv[1] : ""));
    const std::unique_ptr<AVPacket, Close> packet(av_packet_alloc());
    int64_t packets = 0, bytes = 0;
    for (; file.Read(packet.get()); ++packets)
        bytes += packet->size;
    std::printf("%lld packets, %lld bytes\n", static_cast<long long>(packets), static_cast<long long>(bytes));
} catch (const std::exception& e) {
    std::fprintf(stderr, "%s\n", e.what());
    return 1;
}
