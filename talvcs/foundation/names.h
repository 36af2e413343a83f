#pragma once

#include <talvcs/foundation/always_return.h>
#include <talvcs/foundation/array_view.h>
#include <talvcs/foundation/buffer.h>
#include <talvcs/foundation/cow_ptr.h>
#include <talvcs/foundation/delegate.h>
#include <talvcs/foundation/safe_function.h>
#include <talvcs/foundation/stream.h>
#include <talvcs/foundation/string.h>
#include <talvcs/foundation/time.h>

/// The names of the lower layers as the interfaces of TalVcs use them.
namespace TalVcs {

using TalPlatform::CompareCase;
using TalPlatform::TalStringT;
using TalPlatform::TalStringViewT;
using TalPlatform::WideChar;
using TalUtils::always_return_t;
using TalUtils::array_view;
using TalUtils::basic_safe_function;
using TalUtils::cow_ptr;
using TalUtils::Delegate;
using TalUtils::IStream;
using TalUtils::MemStream;
using TalUtils::Stream;
using TalUtils::Time;
using TalUtils::TimeDelta;
using TalUtils::TimeZone;
using TalUtils::Memory::Buffer;
using TalUtils::Serialization::StreamIO;

}  // namespace TalVcs
