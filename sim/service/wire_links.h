// The network devices of the network namespace the calling thread is in.
#ifndef NDSVC_WIRE_LINKS_H
#define NDSVC_WIRE_LINKS_H

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace ndsvc {

struct WireLink {
    int index = 0;
    std::string name;
    bool up = false;
    std::array<uint8_t, 6> mac{};
    uint32_t masterIndex = 0; // the bridge it is a port of; 0 for none
    std::string master;       // and that bridge's name
};

// Every device, as rtnetlink lists it; false with the reason when the kernel cannot be asked.
bool wire_links(std::vector<WireLink> &links, std::string &error);

} // namespace ndsvc

#endif
