#include "host/ProcessingSupport.h"

#include <algorithm>
#include <utility>

namespace Quorva::Proc {

std::unique_ptr<const MovieProbe> MovieProbe::Create(const boost::intrusive_ptr<Core::IDataInput>& input,
                                                     uint64_t size)
{
    input->MoveTo(0);
    std::vector<uint8_t> bytes(std::min(size, input->GetSize()));
    uint64_t done = 0;
    while (done < bytes.size()) {
        const uint64_t count = input->Read(bytes.data() + done, bytes.size() - done);
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
