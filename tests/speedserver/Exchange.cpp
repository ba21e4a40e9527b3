#include "Exchange.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

namespace skylet::test {

namespace {

/// What TLS adds to a record.
constexpr std::int64_t wrapping = 22;

/// The number after "bytes=", or 0.
std::int64_t askedFor(const std::string& path) {
    const std::string key = "bytes=";
    const auto place = path.find(key);
    return place == std::string::npos ? 0 : std::strtoll(path.c_str() + place + key.size(), nullptr, 10);
}

} // namespace

Exchange::Exchange(Behaviour behaviour, Record& record)
    : behaviour_(std::move(behaviour)), record_(record), isUpload_(record.method == "POST"),
      isHead_(record.method == "HEAD") {
    if (!isUpload_ && !isHead_) {
        length_ = behaviour_.length >= 0 ? behaviour_.length : askedFor(record.path);
    }
}

int Exchange::status() const {
    if (behaviour_.status != 0) {
        return behaviour_.status;
    }
    return isHead_ ? 204 : 200;
}

void Exchange::holdAt(std::int64_t bytes) {
    hold_ = isHead_ ? 0 : bytes;
    // there is more to come
    length_ = std::max(length_, hold_ + 1);
}

std::int64_t Exchange::allowance(Time now) const {
    auto allowed = std::numeric_limits<std::int64_t>::max();
    if (behaviour_.rate > 0) {
        const auto since = std::chrono::duration<double>(now - record_.began).count();
        allowed = static_cast<std::int64_t>(since * behaviour_.rate) - moved_;
    }
    if (behaviour_.at >= 0 && behaviour_.deed != Deed::none) {
        allowed = std::min(allowed, behaviour_.at - moved_);
    }
    if (hold_ >= 0) {
        allowed = std::min(allowed, hold_ - moved_);
    }
    return stopsReading() ? 0 : std::max<std::int64_t>(0, allowed);
}

void Exchange::move(std::int64_t count) {
    moved_ += count;
    if (!isUpload_ && moved_ >= length_) {
        bodyWhole();
    }
}

void Exchange::inspect(std::span<const std::uint8_t> data) {
    // each byte like the one before it
    const bool isZero =
        data.empty() || (data[0] == 0 && std::memcmp(data.data(), data.data() + 1, data.size() - 1) == 0);
    record_.isAllZero = record_.isAllZero && isZero;
}

void Exchange::written(std::int64_t wire) {
    if (!acknowledged_) {
        acknowledged_ = Mark{wire - moved_, 0};
    }
    if (!isUpload_ && (marks_.empty() || marks_.back().body != moved_)) {
        marks_.push_back({wire, moved_});
    }
}

void Exchange::note(std::int64_t acknowledged, std::int64_t incomplete) {
    const auto bytes =
        isUpload_ ? moved_ + std::max<std::int64_t>(0, incomplete - wrapping) : acknowledgedBody(acknowledged);
    if (record_.series.empty() || record_.series.back().bytes != bytes) {
        record_.series.push_back({Clock::now(), bytes});
    }
}

std::int64_t Exchange::acknowledgedBody(std::int64_t acknowledged) {
    while (!marks_.empty() && marks_.front().wire <= acknowledged) {
        acknowledged_ = marks_.front();
        marks_.pop_front();
    }
    if (!acknowledged_ || acknowledged_->wire >= acknowledged || marks_.empty()) {
        return acknowledged_ ? acknowledged_->body : 0;
    }
    const auto& next = marks_.front();
    return acknowledged_->body +
           (next.body - acknowledged_->body) * (acknowledged - acknowledged_->wire) / (next.wire - acknowledged_->wire);
}

} // namespace skylet::test
