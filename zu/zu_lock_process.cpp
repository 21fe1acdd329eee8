// Named process locks: the platform's mutex itself, and the form that every user of the machine may use.
#include "zu/zu_support.h"

namespace {

// The security descriptor that lets everyone use a lock, and its parts. All are released at the end of the scope.
class everyone_access {
public:
    ~everyone_access();
    bool build();
    platform::SECURITY_DESCRIPTOR* descriptor() const { return descriptor_; }

private:
    bool make_identifiers();
    bool make_list();
    bool make_descriptor();

    platform::PSID everyone_ = nullptr;
    platform::PSID administrators_ = nullptr;
    platform::PSID owner_ = nullptr;
    platform::ACL* list_ = nullptr;
    platform::SECURITY_DESCRIPTOR* descriptor_ = nullptr;
};

everyone_access::~everyone_access() {
    const zu::keep_last_error keep;
    if (descriptor_)
        platform::LocalFree(descriptor_);
    if (list_)
        platform::LocalFree(list_);
    for (platform::PSID sid : {everyone_, administrators_, owner_}) {
        if (sid)
            platform::FreeSid(sid);
    }
}

bool new_administrators(platform::PSID* sid) {
    platform::SID_IDENTIFIER_AUTHORITY authority = {SECURITY_NT_AUTHORITY};
    return platform::AllocateAndInitializeSid(&authority, 2, SECURITY_BUILTIN_DOMAIN_RID,
                                              DOMAIN_ALIAS_RID_ADMINS, 0, 0, 0, 0, 0, 0, sid);
}

bool everyone_access::make_identifiers() {
    platform::SID_IDENTIFIER_AUTHORITY world = {SECURITY_WORLD_SID_AUTHORITY};
    return platform::AllocateAndInitializeSid(&world, 1, SECURITY_WORLD_RID, 0, 0, 0, 0, 0, 0, 0, &everyone_)
           && new_administrators(&administrators_) && new_administrators(&owner_);
}

bool everyone_access::make_list() {
    platform::EXPLICIT_ACCESS_W entries[2] = {};
    for (platform::EXPLICIT_ACCESS_W& entry : entries) {
        entry.grfAccessPermissions = MUTEX_ALL_ACCESS;
        entry.grfAccessMode = SET_ACCESS;
        entry.grfInheritance = NO_INHERITANCE;
        entry.Trustee.TrusteeForm = TRUSTEE_IS_SID;
    }
    entries[0].Trustee.TrusteeType = TRUSTEE_IS_WELL_KNOWN_GROUP;
    entries[0].Trustee.ptstrName = static_cast<ZU_wchar*>(everyone_);
    entries[1].Trustee.TrusteeType = TRUSTEE_IS_GROUP;
    entries[1].Trustee.ptstrName = static_cast<ZU_wchar*>(administrators_);
    return platform::SetEntriesInAclW(2, entries, nullptr, &list_) == ERROR_SUCCESS;
}

bool everyone_access::make_descriptor() {
    descriptor_ = static_cast<platform::SECURITY_DESCRIPTOR*>(
        platform::LocalAlloc(LMEM_ZEROINIT, sizeof(platform::SECURITY_DESCRIPTOR)));
    return descriptor_ && platform::InitializeSecurityDescriptor(descriptor_, SECURITY_DESCRIPTOR_REVISION)
           && platform::SetSecurityDescriptorOwner(descriptor_, owner_, FALSE)
           && platform::SetSecurityDescriptorDacl(descriptor_, TRUE, list_, FALSE);
}

bool everyone_access::build() {
    return make_identifiers() && make_list() && make_descriptor();
}

} // namespace

ZU_lock_process ZU_lock_process_create(const ZU_wchar* name) {
    return platform::CreateMutexW(nullptr, FALSE, name);
}

ZU_lock_process ZU_lock_process_create_everyone(const ZU_wchar* name) {
    everyone_access access;
    if (!access.build())
        return nullptr;
    platform::SECURITY_ATTRIBUTES attributes = {sizeof attributes, access.descriptor(), FALSE};
    return platform::CreateMutexW(&attributes, FALSE, name);
}

ZU_lock_process ZU_lock_process_open(const ZU_wchar* name) {
    return platform::OpenMutexW(MUTEX_MODIFY_STATE, FALSE, name);
}

ZU_bool ZU_lock_process_lock(ZU_lock_process lock) {
    return platform::WaitForSingleObject(lock, INFINITE) == WAIT_OBJECT_0;
}

ZU_bool ZU_lock_process_lock_timeout(ZU_lock_process lock, uint32_t timeout_ms) {
    return platform::WaitForSingleObject(lock, timeout_ms) == WAIT_OBJECT_0;
}

ZU_bool ZU_lock_process_unlock(ZU_lock_process lock) {
    return platform::ReleaseMutex(lock) != FALSE;
}

ZU_bool ZU_lock_process_close(ZU_lock_process lock) {
    return !lock || platform::CloseHandle(lock) != FALSE;
}

ZU_bool ZU_lock_process_destroy(ZU_lock_process lock) {
    return ZU_lock_process_close(lock);
}
