// Platform resources held for the length of a call: each is released on every way out of the
// scope that acquired it.
#ifndef ND_CLI_OWNED_H
#define ND_CLI_OWNED_H

#include <type_traits>

#include "nd_cli_internal.h"

namespace ndcli {

template <typename T, auto Release> class Owned {
public:
    using ReleaseResult = decltype(Release(T{}));

    Owned() = default;
    explicit Owned(T resource) : resource_(resource) {}
    ~Owned() { close(); }
    Owned(const Owned &) = delete;
    Owned &operator=(const Owned &) = delete;

    T get() const { return resource_; }
    explicit operator bool() const { return resource_ != nullptr; }
    // Where a platform call that opens the resource stores it.
    T *out() { return &resource_; }
    // Hands the resource on: the guard no longer releases it.
    T release()
    {
        T resource = resource_;
        resource_ = nullptr;
        return resource;
    }
    // Releases now, for callers that report the release's own result (zero when none was held).
    ReleaseResult close()
    {
        T resource = release();
        if constexpr (std::is_void_v<ReleaseResult>) {
            if (resource)
                Release(resource);
        } else {
            return resource ? Release(resource) : ReleaseResult{};
        }
    }

private:
    T resource_ = nullptr;
};

using OwnedContext = Owned<CMF_CONTEXT, CMF_ClientContextClose>;
using OwnedDatabase = Owned<DBM_HANDLE, DBM_Close>;
using OwnedMemory = Owned<void *, __UMV2L_free>;
using OwnedFile = Owned<FILE *, __UMV2L_fclose>;

} // namespace ndcli

#endif
