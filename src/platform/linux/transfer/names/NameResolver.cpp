#include "platform/linux/transfer/names/NameResolver.h"

#include "platform/linux/transfer/TransferLog.h"

#include <QPromise>
#include <QTimer>

#include <netdb.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

namespace skylet {

namespace {

/// More are never tried within the time that a request has.
constexpr std::size_t addressLimit = 32;

/// Fulfils the promise from a thread of its own, which may outlive whoever waits for the answer. Where no thread is to
/// be had, the promise is broken, which ends the look-up without an answer.
void askOnThread(QPromise<NameResolver::Answer> promise, const NameResolver::SystemLookUp& systemLookUp,
                 const QByteArray& host) {
    promise.start();
    try {
        std::thread([promise = std::move(promise), systemLookUp, host]() mutable {
            promise.addResult(systemLookUp(host));
            promise.finish();
        }).detach();
    } catch (const std::system_error&) {
        // The broken promise says it all.
    }
}

} // namespace

NameResolver::NameResolver(std::shared_ptr<const Clock> clock, std::shared_ptr<const NetworkEpoch> epoch,
                           SystemLookUp systemLookUp, Configuration configuration)
    : clock_(std::move(clock)), epoch_(std::move(epoch)), systemLookUp_(std::move(systemLookUp)),
      configuration_(std::move(configuration)), lastConfiguration_(configuration_()), epochOfNames_(epoch_->current()) {
}

void NameResolver::lookUp(const QString& host, Freshness freshness, Completion completion) {
    forgetOtherNetwork();
    askChangedNameServers();
    auto& name = names_[host];
    const auto age = clock_->systemUptime() - name.answered;
    const bool isKept = !name.addresses.empty() && age < keepFor;
    if (isKept && freshness == Freshness::kept) {
        const auto addresses = name.addresses;
        if (name.isStale) {
            waitOrUse(name, addresses, std::move(completion));
            ask(host);
            return;
        }
        if (age >= refreshAfter) {
            ask(host);
        }
        completion(addresses);
        return;
    }
    name.waiting.push_back(std::move(completion));
    ask(host);
}

void NameResolver::waitOrUse(Name& name, const Addresses& kept, Completion completion) {
    const auto pending = std::make_shared<Completion>(std::move(completion));
    const auto complete = [pending](const Addresses& addresses) {
        if (const auto waiting = std::exchange(*pending, nullptr)) {
            waiting(addresses);
        }
    };
    name.waiting.emplace_back(
        [complete, kept](const Addresses& addresses) { complete(addresses.empty() ? kept : addresses); });
    QTimer::singleShot(staleTimeout, lifetime_.guard([complete, kept] { complete(kept); }));
}

void NameResolver::setStale(const QString& host, bool isStale) {
    if (const auto place = names_.find(host); place != names_.end()) {
        place->second.isStale = isStale;
    }
}

void NameResolver::putFirstAddressLast(const QString& host) {
    if (const auto place = names_.find(host); place != names_.end() && !place->second.addresses.empty()) {
        auto& addresses = place->second.addresses;
        std::rotate(addresses.begin(), addresses.begin() + 1, addresses.end());
    }
}

void NameResolver::forgetOtherNetwork() {
    if (epochOfNames_ == epoch_->current()) {
        return;
    }
    epochOfNames_ = epoch_->current();
    ++generation_;
    for (auto& [host, name] : std::exchange(names_, {})) {
        QTimer::singleShot(0, lifetime_.guard([waiting = std::move(name.waiting)] { complete(waiting, {}); }));
    }
}

void NameResolver::askChangedNameServers() {
    const auto configuration = configuration_();
    if (std::exchange(lastConfiguration_, configuration) == configuration) {
        return;
    }
    ++generation_;
    for (auto& [host, name] : names_) {
        name.isStale = true;
        if (std::exchange(name.isPending, false)) {
            ask(host);
        }
    }
}

void NameResolver::ask(const QString& host) {
    if (std::exchange(names_[host].isPending, true)) {
        return;
    }
    const auto place = pending_.emplace(pending_.end(), new QFutureWatcher<Answer>);
    auto& watcher = **place;
    QObject::connect(
        &watcher, &QFutureWatcherBase::finished, &watcher,
        [this, place, host, generation = generation_, begun = clock_->systemUptime()] {
            const auto future = (*place)->future();
            const auto answer = future.resultCount() > 0 ? future.result() : Answer{{}, "no thread to ask on"};
            pending_.erase(place);
            const auto& outcome = answer.addresses.empty() ? answer.error : answer.addresses.front();
            qCInfo(transferLog, "%s: looked up in %.0f ms: %s", qPrintable(host),
                   (clock_->systemUptime() - begun).count() * 1000, outcome.constData());
            answered(host, generation, answer);
        });
    QPromise<Answer> promise;
    watcher.setFuture(promise.future());
    if (pending_.size() <= threadLimit) {
        askOnThread(std::move(promise), systemLookUp_, host.toUtf8());
    }
}

void NameResolver::answered(const QString& host, std::uint64_t generation, const Answer& answer) {
    forgetOtherNetwork();
    if (generation != generation_) {
        return;
    }
    auto& name = names_[host];
    name.isPending = false;
    auto addresses = answer.addresses;
    if (!addresses.empty()) {
        // The same answer again is as stale as before, and what led nowhere stays behind.
        if (std::is_permutation(addresses.begin(), addresses.end(), name.addresses.begin(), name.addresses.end())) {
            addresses = name.addresses;
        } else {
            name.isStale = false;
            name.addresses = addresses;
        }
        name.answered = clock_->systemUptime();
    }
    complete(std::exchange(name.waiting, {}), addresses);
}

void NameResolver::complete(const std::vector<Completion>& waiting, const Addresses& addresses) {
    for (const auto& completion : waiting) {
        completion(addresses);
    }
}

NameResolver::Answer NameResolver::askSystem(const QByteArray& host) {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_ADDRCONFIG;
    addrinfo* found = nullptr;
    if (const int error = ::getaddrinfo(host.constData(), nullptr, &hints, &found); error != 0) {
        return {{}, ::gai_strerror(error)};
    }
    const std::unique_ptr<addrinfo, void (*)(addrinfo*)> owner(found, &::freeaddrinfo);
    Addresses addresses;
    for (const auto* entry = found; entry != nullptr && addresses.size() < addressLimit; entry = entry->ai_next) {
        std::array<char, NI_MAXHOST> text{};
        const bool isNumeric =
            ::getnameinfo(entry->ai_addr, entry->ai_addrlen, text.data(), text.size(), nullptr, 0, NI_NUMERICHOST) == 0;
        // An address that means something on one link only ("fe80::1%eth0") cannot be given to libcurl.
        if (isNumeric && std::string_view(text.data()).find('%') == std::string_view::npos) {
            addresses.emplace_back(text.data());
        }
    }
    return {addresses, "no usable address"};
}

QByteArray NameResolver::systemConfiguration() {
    struct stat status {};
    if (::stat("/etc/resolv.conf", &status) != 0) {
        return {};
    }
    QByteArray stamp;
    for (const auto value :
         {static_cast<qint64>(status.st_dev), static_cast<qint64>(status.st_ino), static_cast<qint64>(status.st_size),
          static_cast<qint64>(status.st_mtim.tv_sec), static_cast<qint64>(status.st_mtim.tv_nsec)}) {
        stamp += QByteArray::number(value) + ' ';
    }
    return stamp;
}

} // namespace skylet
