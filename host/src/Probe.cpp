#include "host/ProcessingSupport.h"

#include <algorithm>
#include <utility>

namespace Quorva::Proc {

std::unique_ptr<const MovieProbe> MovieProbe::Create(const boost::intrusive_ptr<Core::IDataInput>& input,
                                                     uint64_t size)
{
    constexpr uint64_t step = uint64_t{1} << 20;  // a stream's size is a claim: memory follows what was read
    input->MoveTo(0);
    const uint64_t wanted = std::min(size, input->GetSize());
    std::vector<uint8_t> bytes;
    uint64_t done = 0;
    while (done < wanted) {
        if (done == bytes.size())
            bytes.resize(done + std::min(wanted - done, step));
        const uint64_t count = Core::CheckedRead(*input, bytes.data() + done, bytes.size() - done);
        if (count == 0)
            break;  // the file has shrunk meanwhile
        done += count;
    }
    input->MoveTo(0);
    bytes.resize(done);
    return Create(input->GetName(), std::move(bytes));
}

std::unique_ptr<const MovieProbe> MovieProbe::Create(const std::string& fileName, std::vector<uint8_t> bytes)
{
    auto probe = std::make_unique<MovieProbe>();
    probe->fileName = fileName;
    probe->extension = ioPath(fileName).GetExtension();
    probe->size = bytes.size();
    bytes.resize(bytes.size() + PADDING);
    probe->storage = std::move(bytes);
    probe->buffer = probe->storage.data();
    return probe;
}

}  // namespace Quorva::Proc
