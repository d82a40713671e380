#include "KvSubjectContext.h"

CKvSubjectContext::CKvSubjectContext() = default;
CKvSubjectContext::CKvSubjectContext(const CKvSubjectContext& other) = default;
CKvSubjectContext::~CKvSubjectContext() = default;
CKvSubjectContext& CKvSubjectContext::operator=(const CKvSubjectContext& other) = default;
