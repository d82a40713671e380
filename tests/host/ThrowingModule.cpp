#include "KvVaneException.h"
#include "PlatformCompiler.h"

extern "C" KV_EXPORT void throwVaneException() {
    throw CKvVaneException("src/BaseReceiver", "void redirect()", 7, "KV_E_INVALID_PROTOCOL",
                           static_cast<HRESULT>(0x89998279));
}
