#include "nft_session.h"

#include <nftables/libnftables.h>

#include <cctype>

namespace ndsvc {

namespace {

constexpr size_t kIfNameMax = 15; // IFNAMSIZ less its terminating zero

} // namespace

NftSession::NftSession() : nft_(nft_ctx_new(NFT_CTX_DEFAULT))
{
    if (nft_) {
        nft_ctx_buffer_output(nft_);
        nft_ctx_buffer_error(nft_);
    }
}

NftSession::~NftSession()
{
    if (nft_)
        nft_ctx_free(nft_);
}

bool NftSession::run(const std::string &commands, std::string &error, std::string *output, bool json)
{
    if (!nft_) {
        error = "no nftables context";
        return false;
    }
    nft_ctx_output_set_flags(nft_, json ? NFT_CTX_OUTPUT_JSON : 0);
    int rc = nft_run_cmd_from_buffer(nft_, commands.c_str());
    nft_ctx_output_set_flags(nft_, 0);
    // Read (and so emptied) after every command, also a failed one.
    const char *out = nft_ctx_get_output_buffer(nft_);
    const char *err = nft_ctx_get_error_buffer(nft_);
    if (rc != 0) {
        error = err && *err ? err : "nftables refused the commands";
        while (!error.empty() && error.back() == '\n')
            error.pop_back();
        return false;
    }
    if (output)
        *output = out ? out : "";
    return true;
}

bool nft_valid_port(const std::string &port)
{
    if (port.empty() || port.size() > kIfNameMax)
        return false;
    for (char c : port)
        if (!(isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '_' || c == '.'))
            return false;
    return true;
}

} // namespace ndsvc
