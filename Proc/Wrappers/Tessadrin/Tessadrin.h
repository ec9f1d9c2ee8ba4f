/// @file
/// Everything the library offers, for callers that want it at once. The library itself includes the header of
/// what it uses.
///
/// A process with one thread may load the library and fork() workers that use it; with more threads a child
/// may only call async-signal-safe functions until exec. See "fork()" in docs/architecture.md.
#pragma once

#include "Proc/Wrappers/Tessadrin/ChannelLayoutsConvertion.h"
#include "Proc/Wrappers/Tessadrin/CodecList.h"
#include "Proc/Wrappers/Tessadrin/InputFormat.h"
#include "Proc/Wrappers/Tessadrin/OutputFormat.h"
#include "Proc/Wrappers/Tessadrin/SafeSwrContext.h"
#include "Proc/Wrappers/Tessadrin/SafeSwsContext.h"
#include "Proc/Wrappers/Tessadrin/SafeTypes.Hardware.h"
#include "Proc/Wrappers/Tessadrin/SafeTypes.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Cancellation.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.CodecTags.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Codecs.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.CustomIO.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Dictionaries.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Dumps.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Frames.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.GuardedIO.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.LogBridge.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.MemStat.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Packets.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Parameters.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.PixelFormats.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.TimeBase.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.UniquePtr.h"
