// LogNull.h - a log that drops everything
//
// For engine calls whose diagnostics nobody reads. Stateless, so one object
// may be shared by any number of threads.
//
// See also: LogBase.h, Logger.h
#pragma once

#include "textlib/log/LogBase.h"

namespace brelkin {

class LogNull : public LogBase {};

}  // namespace brelkin
