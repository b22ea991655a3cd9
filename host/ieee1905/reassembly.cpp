#include "reassembly.h"

#include <algorithm>
#include <iterator>

namespace kv1905d {
namespace {

constexpr char kLate[] = "its other fragments did not arrive in time";

Reassembly::Result decode(const Fragment &fragment, std::span<const ByteView> bodies) {
    std::optional<std::vector<Tlv>> tlvs = decodeTlvs(bodies);
    if (!tlvs) return {Reassembly::Status::Malformed, {}};
    return {Reassembly::Status::Complete, {fragment.type, fragment.id, fragment.relay, std::move(*tlvs)}};
}

}  // namespace

Reassembly::Result Reassembly::add(const MacAddress &source, const Fragment &fragment, TimePoint now) {
    if (fragment.index == 0 && fragment.last) return decode(fragment, {&fragment.body, 1});

    const Key key{source, fragment.type, fragment.id, fragment.relay};
    auto at = entries_.find(key);
    if (at != entries_.end() && now - at->second.since >= kLifetime) {
        giveUp(at, kLate);
        at = entries_.end();
    }
    if (at != entries_.end() && at->second.bodies.contains(fragment.index)) return {};
    if (at != entries_.end() && !at->second.accepts(fragment)) {
        remove(at);
        return {Status::Malformed, {}};
    }

    makeRoom(fragment.body.size(), at == entries_.end());
    at = entries_.try_emplace(key, Entry{now, fragment.port, 0, -1, {}}).first;  // makeRoom may have removed it
    Entry &entry = at->second;
    entry.bodies.emplace(fragment.index, Bytes(fragment.body.begin(), fragment.body.end()));
    entry.bytes += fragment.body.size();
    bytes_ += fragment.body.size();
    if (fragment.last) entry.last = fragment.index;
    if (!entry.complete()) return {};

    std::vector<ByteView> bodies;
    for (const auto &[index, body] : entry.bodies)
        bodies.emplace_back(body);
    Result result = decode(fragment, bodies);
    remove(at);
    return result;
}

bool Reassembly::Entry::accepts(const Fragment &fragment) const {
    if (fragment.body.size() > kMaxMessageBytes - bytes) return false;
    if (last >= 0 && (fragment.last || fragment.index > last)) return false;
    return !fragment.last || bodies.empty() || bodies.rbegin()->first < fragment.index;
}

size_t Reassembly::expire(TimePoint now) {
    size_t count = 0;
    for (auto at = entries_.begin(); at != entries_.end();) {
        const auto next = std::next(at);
        if (now - at->second.since >= kLifetime) {
            giveUp(at, kLate);
            ++count;
        }
        at = next;
    }
    return count;
}

TimePoint Reassembly::nextExpiry() const {
    TimePoint next = TimePoint::max();
    for (const auto &[key, entry] : entries_)
        next = std::min(next, entry.since + kLifetime);
    return next;
}

void Reassembly::makeRoom(size_t bytes, bool newMessage) {
    while (!entries_.empty() && (bytes > kMaxBytes - bytes_ || (newMessage && entries_.size() >= kMaxMessages))) {
        giveUp(oldest(), "too many fragments of other messages arrived");
        ++evicted_;
    }
}

Reassembly::Entries::iterator Reassembly::oldest() {
    return std::min_element(entries_.begin(), entries_.end(),
                            [](const auto &a, const auto &b) { return a.second.since < b.second.since; });
}

void Reassembly::giveUp(Entries::iterator at, const char *reason) {
    lost_ = Lost{at->first.source, at->first.type, at->second.port, reason};
    remove(at);
}

void Reassembly::remove(Entries::iterator at) {
    bytes_ -= at->second.bytes;
    entries_.erase(at);
}

}  // namespace kv1905d
