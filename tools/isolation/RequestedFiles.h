/// @file
/// Outputs of code that may run in a worker.
#pragma once

#include "host/FoundationIO.h"

#include <string>

namespace Quorva::Tool {

/// Has the same functions as OutputFiles, which the parent keeps and works on.
class RequestedFiles {
public:
    /// @throws Core::IOException  as OutputFiles::Check()
    void Check(const std::string& path) const;
    /// @throws Core::IOException  as OutputFiles::Create(), or the parent doesn't want it written
    boost::intrusive_ptr<Core::IDataOutput> Create(const std::string& path);
    /// @throws Core::IOException  as OutputFiles::Commit()
    void Commit();
};

}  // namespace Quorva::Tool
