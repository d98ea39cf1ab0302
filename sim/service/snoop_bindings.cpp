// First-come-first-served bindings of ND snooping.
#include "snoop_bindings.h"

#include <algorithm>

namespace ndsvc {

namespace {

bool sameOwner(const SnoopBindingEntry &e, const Mac48 &mac, const std::string &port)
{
    return e.mac == mac && e.port == port;
}

SnoopBindingEntry entryOf(const Address6 &address, const Mac48 &mac, uint16_t vlan, const std::string &port,
                          SnoopBindingEntry::State state, SnoopClock::time_point since = {})
{
    SnoopBindingEntry e;
    e.address = address;
    e.mac = mac;
    e.vlan = vlan;
    e.port = port;
    e.state = state;
    e.since = since;
    return e;
}

} // namespace

SnoopBindingTable::Claim SnoopBindingTable::claim(const Address6 &address, const Mac48 &mac, uint16_t vlan,
                                                  const std::string &port, SnoopClock::time_point now)
{
    auto it = entries_.find(Key{vlan, address});
    if (it != entries_.end())
        return sameOwner(it->second, mac, port) ? Claim::Same : Claim::Owned;
    if (learned_ >= ceiling_)
        return Claim::Full;
    entries_.emplace(Key{vlan, address}, entryOf(address, mac, vlan, port, SnoopBindingEntry::State::Tentative, now));
    ++learned_;
    return Claim::Tentative;
}

bool SnoopBindingTable::advertised(const Address6 &address, const Mac48 &mac, uint16_t vlan, const std::string &port)
{
    auto it = entries_.find(Key{vlan, address});
    if (it == entries_.end())
        return false;
    SnoopBindingEntry &e = it->second;
    if (e.state == SnoopBindingEntry::State::Tentative && !sameOwner(e, mac, port)) {
        entries_.erase(it);
        --learned_;
        return true;
    }
    if (e.state == SnoopBindingEntry::State::Valid && sameOwner(e, mac, port))
        e.unanswered = 0;
    return false;
}

std::vector<SnoopBindingEntry> SnoopBindingTable::promote(SnoopClock::time_point now)
{
    std::vector<SnoopBindingEntry> promoted;
    for (auto &[key, e] : entries_)
        if (e.state == SnoopBindingEntry::State::Tentative && now - e.since >= kDadTime) {
            e.state = SnoopBindingEntry::State::Valid;
            e.since = now;
            e.nextProbe = now + kFirstProbeAfter;
            e.unanswered = 0;
            promoted.push_back(e);
        }
    return promoted;
}

std::vector<SnoopBindingEntry> SnoopBindingTable::probes_due(SnoopClock::time_point now,
                                                             SnoopClock::duration interval, uint32_t retransmit,
                                                             std::vector<SnoopBindingEntry> &expired)
{
    std::vector<SnoopBindingEntry> due;
    for (auto it = entries_.begin(); it != entries_.end();) {
        SnoopBindingEntry &e = it->second;
        if (e.state != SnoopBindingEntry::State::Valid || now < e.nextProbe) {
            ++it;
            continue;
        }
        if (e.unanswered >= retransmit) {
            expired.push_back(e);
            it = entries_.erase(it);
            --learned_;
            continue;
        }
        // After the last probe the host gets the answer time only, not a whole interval.
        ++e.unanswered;
        e.nextProbe = now + (e.unanswered >= retransmit ? std::min(interval, kAnswerTime) : interval);
        due.push_back(e);
        ++it;
    }
    return due;
}

bool SnoopBindingTable::add_static(const Address6 &address, const Mac48 &mac, uint16_t vlan, const std::string &port)
{
    auto it = entries_.find(Key{vlan, address});
    if (it != entries_.end()) {
        if (it->second.state == SnoopBindingEntry::State::Static)
            return sameOwner(it->second, mac, port);
        --learned_;
    }
    entries_[Key{vlan, address}] = entryOf(address, mac, vlan, port, SnoopBindingEntry::State::Static);
    return true;
}

bool SnoopBindingTable::remove_static(const Address6 &address, uint16_t vlan)
{
    auto it = entries_.find(Key{vlan, address});
    if (it == entries_.end() || it->second.state != SnoopBindingEntry::State::Static)
        return false;
    entries_.erase(it);
    return true;
}

std::vector<SnoopBindingEntry> SnoopBindingTable::clear_learned(uint16_t vlan)
{
    std::vector<SnoopBindingEntry> cleared;
    for (auto it = entries_.begin(); it != entries_.end();) {
        if (it->second.state != SnoopBindingEntry::State::Static && (vlan == 0 || it->first.first == vlan)) {
            cleared.push_back(it->second);
            it = entries_.erase(it);
            --learned_;
        } else {
            ++it;
        }
    }
    return cleared;
}

const SnoopBindingEntry *SnoopBindingTable::find(const Address6 &address, uint16_t vlan) const
{
    auto it = entries_.find(Key{vlan, address});
    return it == entries_.end() ? nullptr : &it->second;
}

std::vector<SnoopBindingEntry> SnoopBindingTable::of_state(SnoopBindingEntry::State state) const
{
    std::vector<SnoopBindingEntry> out;
    for (const auto &[key, e] : entries_)
        if (e.state == state)
            out.push_back(e);
    return out;
}

} // namespace ndsvc
