#pragma once

#include "PlatformCompiler.h"

// Exported for hosts that derive from it; nothing in the module uses it.
class KV_EXPORT CKvSubjectContext {
public:
    CKvSubjectContext();
    CKvSubjectContext(const CKvSubjectContext& other);
    virtual ~CKvSubjectContext();
    CKvSubjectContext& operator=(const CKvSubjectContext& other);
};
