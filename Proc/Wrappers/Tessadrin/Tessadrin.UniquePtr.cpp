#include "Proc/Wrappers/Tessadrin/Tessadrin.UniquePtr.h"

namespace Quorva::Proc::Details {

template class UniquePtr<AVBufferRef, CustomDeleterAVBufferUnref>;

static_assert(sizeof(UniquePtr<AVBufferRef, CustomDeleterAVBufferUnref>) == sizeof(AVBufferRef*));

}  // namespace Quorva::Proc::Details
