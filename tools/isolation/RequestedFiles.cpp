#include "tools/isolation/RequestedFiles.h"

#include "tools/isolation/Worker.h"

namespace Quorva::Tool {

void RequestedFiles::Check(const std::string& path) const { CheckOutput(path); }

boost::intrusive_ptr<Core::IDataOutput> RequestedFiles::Create(const std::string& path)
{
    return OpenOutput(path);
}

void RequestedFiles::Commit() { CommitOutputs(); }

}  // namespace Quorva::Tool
