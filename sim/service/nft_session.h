// One libnftables context, and what the service's tables of the bridge family share: the text
// of their set elements and transactions that add and remove many of them at once.
#ifndef NDSVC_NFT_SESSION_H
#define NDSVC_NFT_SESSION_H

#include <array>
#include <cstdint>
#include <cstdio>
#include <set>
#include <string>
#include <vector>

struct nft_ctx;

namespace ndsvc {

class NftSession {
public:
    NftSession();
    ~NftSession();
    NftSession(const NftSession &) = delete;
    NftSession &operator=(const NftSession &) = delete;

    // Runs nft commands as one transaction in the network namespace of the calling thread when
    // this object was made; false with nftables' reason in `error` (nothing changed). With
    // `json`, the output (e.g. of a listing) comes as JSON.
    bool run(const std::string &commands, std::string &error, std::string *output = nullptr, bool json = false);

private:
    nft_ctx *nft_ = nullptr;
};

// A device name as the kernel allows it, and safe inside the quotes of an nftables command.
bool nft_valid_port(const std::string &port);

// Bytes as the number that a raw payload expression compares with: an ND target's 128 bits, a
// link-layer option's 48.
template <size_t N> std::string nft_hex_number(const std::array<uint8_t, N> &bytes)
{
    std::string text = "0x";
    char byte[3];
    for (uint8_t b : bytes) {
        snprintf(byte, sizeof byte, "%02x", b);
        text += byte;
    }
    return text;
}

// The commands of one transaction that adds and removes set elements; false on a port name no
// device can have. Adding what goes first keeps the transaction valid whether or not it was
// there.
template <typename Item, typename PortOf, typename CommandOf>
bool nft_change_commands(const std::vector<Item> &added, const std::vector<Item> &removed, PortOf portOf,
                         CommandOf command, std::string &commands, std::string &error)
{
    for (const std::vector<Item> *list : {&added, &removed})
        for (const Item &item : *list) {
            if (!nft_valid_port(portOf(item))) {
                error = "bad port name";
                return false;
            }
            commands += command("add", item);
            if (list == &removed)
                commands += command("delete", item);
        }
    return true;
}

// Makes a set of the kernel equal to `want`, given what it holds (`installed`, updated): one
// transaction through `change(added, removed, error)`; a refusal is told on standard error as
// "ndsvc: WHO: cannot change the kernel's WHAT".
template <typename Item, typename Change>
void nft_sync_set(std::set<Item> &installed, const std::set<Item> &want, Change change, const char *who,
                  const char *what)
{
    std::vector<Item> added, removed;
    for (const Item &i : installed)
        if (!want.count(i))
            removed.push_back(i);
    for (const Item &i : want)
        if (!installed.count(i))
            added.push_back(i);
    std::string error;
    if (!change(added, removed, error))
        fprintf(stderr, "ndsvc: %s: cannot change the kernel's %s: %s\n", who, what, error.c_str());
    installed = want;
}

} // namespace ndsvc

#endif
