/// @file
/// Files that somebody else opened, as host streams.
#pragma once

#include "host/FoundationIO.h"
#include "tools/isolation/ControlChannel.h"

#include <string>

namespace Quorva::Tool {

/// An input of positioned reads, as DataInputFile's.
/// @param name  what GetName() gives: the path that it was opened by
boost::intrusive_ptr<Core::IDataInput> MakeDescriptorInput(Descriptor descriptor, std::string name);

/// An output of positioned writes, as DataOutputFile's; starts at position 0.
/// @param name  for messages
boost::intrusive_ptr<Core::IDataOutput> MakeDescriptorOutput(Descriptor descriptor, std::string name);

}  // namespace Quorva::Tool
