// The kernel's half of the switch's answers: an nftables table of the bridge family, owned by
// the service, that keeps from flooding the neighbor solicitations the service answers itself
// (for a bound host, and every one on a VLAN whose interface proxies anyway), and the switch's
// redirects on such a VLAN, which would send its hosts around the proxy; and the solicitations
// that VXLAN suppression keeps out of a tunnel (`missmatch discard`).
//
// It hooks in after the snooping table: what snooping drops never gets here.
#ifndef NDSVC_ANSWER_RULES_H
#define NDSVC_ANSWER_RULES_H

#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "nft_session.h"

namespace ndsvc {

// A multicast NS for the address entering the port is answered by the service.
using AnsweredTarget = std::pair<std::string, std::array<uint8_t, 16>>;

class AnswerRules {
public:
    static constexpr const char *kTable = "ndsvc_answers";

    // Each call is one transaction in the network namespace of the thread that made this
    // object; false with nftables' reason (nothing changed).
    bool install(std::string &error);
    // No table is no error.
    bool remove(std::string &error);
    bool change_answered(const std::vector<AnsweredTarget> &added, const std::vector<AnsweredTarget> &removed,
                         std::string &error);
    // The ports of the VLANs whose interface proxies anyway.
    bool change_anyway(const std::vector<std::string> &added, const std::vector<std::string> &removed,
                       std::string &error);

    // The VXLAN devices that no NS goes into but a host's own detection.
    bool change_discard(const std::vector<std::string> &added, const std::vector<std::string> &removed,
                        std::string &error);

    static std::string ruleset();

private:
    bool changePorts(const char *set, const std::vector<std::string> &added, const std::vector<std::string> &removed,
                     std::string &error);
    NftSession nft_;
};

} // namespace ndsvc

#endif
