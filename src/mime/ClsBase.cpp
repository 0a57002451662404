// ClsBase.cpp - base of the classes behind the public handles
#include "mime/ClsBase.h"

namespace brelkin {

bool ClsBase::logSuccessOrFailure(bool ok) {
    if (ok)
        m_log.LogInfo("Success.");
    else
        m_log.LogError("Failed.");
    return ok;
}

}  // namespace brelkin
