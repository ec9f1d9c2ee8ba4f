// The key functions of the pipeline's interfaces: one copy of their type information, in this library.
#include "host/MediaDescription.h"
#include "host/ProcessingSupport.h"

namespace Quorva {

IBlob::~IBlob() = default;

namespace Core {

IDataInput::~IDataInput() = default;
IDataOutput::~IDataOutput() = default;

}  // namespace Core

namespace Conf {

IFormatCodec::~IFormatCodec() = default;
IFormatCodecVideo::~IFormatCodecVideo() = default;
IFormatCodecAudio::~IFormatCodecAudio() = default;
IFormatCodecSubtitle::~IFormatCodecSubtitle() = default;

}  // namespace Conf

namespace Proc {

IDataVideo::~IDataVideo() = default;
IDataAudio::~IDataAudio() = default;
IDataSubtitle::~IDataSubtitle() = default;

}  // namespace Proc
}  // namespace Quorva
