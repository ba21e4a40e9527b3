#include "platform/linux/transfer/names/NameResolver.h"

#include "platform/linux/system/FileDescriptor.h"

#include <QSocketNotifier>
#include <QTimer>

#include <netdb.h>
#include <sys/eventfd.h>
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

/// What the asking thread and the main thread share. The thread writes `addresses` before it signals `done`, the main
/// thread reads them after it has seen the signal.
struct Answer {
    NameResolver::Addresses addresses;
    FileDescriptor done{::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
};

void askOnThread(const std::shared_ptr<Answer>& answer, const NameResolver::SystemLookUp& systemLookUp,
                 const QByteArray& host) {
    std::thread([answer, systemLookUp, host] {
        answer->addresses = systemLookUp(host);
        ::eventfd_write(answer->done.get(), 1);
    }).detach();
}

} // namespace

class NameResolver::Question {
  public:
    /// `answered` is called from the event loop and may destroy the question.
    Question(QString host, std::uint64_t generation, const SystemLookUp& systemLookUp,
             std::function<void(const Question&)> answered)
        : host_(std::move(host)), generation_(generation), answered_(std::move(answered)) {
        if (!answer_->done.isValid()) {
            failSoon();
            return;
        }
        notifier_->setSocket(answer_->done.get());
        QObject::connect(notifier_.get(), &QSocketNotifier::activated, notifier_.get(), [this] {
            notifier_->setEnabled(false);
            answered_(*this);
        });
        notifier_->setEnabled(true);
        try {
            askOnThread(answer_, systemLookUp, host_.toUtf8());
        } catch (const std::system_error&) {
            // No thread to be had: the same as no answer, and told in the same way.
            ::eventfd_write(answer_->done.get(), 1);
        }
    }

    const QString& host() const { return host_; }
    std::uint64_t generation() const { return generation_; }
    const Addresses& addresses() const { return answer_->addresses; }

  private:
    void failSoon() {
        QTimer::singleShot(0, notifier_.get(), [this] { answered_(*this); });
    }

    const QString host_;
    const std::uint64_t generation_;
    const std::function<void(const Question&)> answered_;
    /// Outlives this where the thread is still at it.
    const std::shared_ptr<Answer> answer_ = std::make_shared<Answer>();
    /// Is let go from inside its own signal.
    const std::unique_ptr<QSocketNotifier, void (*)(QSocketNotifier*)> notifier_{
        new QSocketNotifier(QSocketNotifier::Read), [](QSocketNotifier* notifier) {
            notifier->setEnabled(false);
            QObject::disconnect(notifier, nullptr, nullptr, nullptr);
            notifier->deleteLater();
        }};
};

NameResolver::NameResolver(std::shared_ptr<const Clock> clock, std::shared_ptr<const NetworkEpoch> epoch,
                           SystemLookUp systemLookUp, Configuration configuration)
    : clock_(std::move(clock)), epoch_(std::move(epoch)), systemLookUp_(std::move(systemLookUp)),
      configuration_(std::move(configuration)), configurationOfQuestions_(configuration_()),
      epochOfNames_(epoch_->current()) {}

NameResolver::~NameResolver() = default;

void NameResolver::lookUp(const QString& host, Freshness freshness, Completion completion) {
    followNetwork();
    followConfiguration();
    auto& name = names_[host];
    const auto age = clock_->systemUptime() - name.answered;
    const bool isKept = !name.addresses.empty() && age < keepFor;
    if (isKept && freshness == Freshness::kept) {
        const auto addresses = name.addresses;
        if (name.isDoubted) {
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
    QTimer::singleShot(doubtPatience, lifetime_.guard([complete, kept] { complete(kept); }));
}

void NameResolver::doubt(const QString& host) {
    if (const auto place = names_.find(host); place != names_.end()) {
        place->second.isDoubted = true;
    }
}

void NameResolver::confirm(const QString& host) {
    if (const auto place = names_.find(host); place != names_.end()) {
        place->second.isDoubted = false;
    }
}

void NameResolver::followNetwork() {
    if (epochOfNames_ == epoch_->current()) {
        return;
    }
    epochOfNames_ = epoch_->current();
    ++generation_;
    queue_.clear();
    for (auto& [host, name] : std::exchange(names_, {})) {
        QTimer::singleShot(0, lifetime_.guard([waiting = std::move(name.waiting)] { complete(waiting, {}); }));
    }
}

void NameResolver::followConfiguration() {
    const auto configuration = configuration_();
    if (std::exchange(configurationOfQuestions_, configuration) == configuration) {
        return;
    }
    ++generation_;
    queue_.clear();
    for (auto& [host, name] : names_) {
        name.isDoubted = true;
        if (std::exchange(name.isAsked, false)) {
            ask(host);
        }
    }
}

void NameResolver::ask(const QString& host) {
    auto& name = names_[host];
    if (name.isAsked) {
        return;
    }
    name.isAsked = true;
    if (questions_.size() < threadLimit) {
        begin(host);
    } else {
        queue_.push_back(host);
    }
}

void NameResolver::begin(const QString& host) {
    questions_.push_back(std::make_unique<Question>(host, generation_, systemLookUp_,
                                                    [this](const Question& question) { answered(question); }));
}

void NameResolver::answered(const Question& question) {
    followNetwork();
    const auto host = question.host();
    const auto addresses = question.addresses();
    const bool isOfUse = question.generation() == generation_;
    const auto place =
        std::find_if(questions_.begin(), questions_.end(), [&](const auto& other) { return other.get() == &question; });
    // It is in the midst of its own signal and has to live until that is over.
    ended_.splice(ended_.end(), questions_, place);
    QTimer::singleShot(0, lifetime_.guard([this] { ended_.clear(); }));
    if (!queue_.empty()) {
        const auto next = queue_.front();
        queue_.pop_front();
        begin(next);
    }
    if (!isOfUse) {
        return;
    }
    auto& name = names_[host];
    name.isAsked = false;
    if (!addresses.empty()) {
        // The same answer again is in as much doubt as before.
        name.isDoubted = name.isDoubted && name.addresses == addresses;
        name.addresses = addresses;
        name.answered = clock_->systemUptime();
    }
    complete(std::exchange(name.waiting, {}), addresses);
}

void NameResolver::complete(const std::vector<Completion>& waiting, const Addresses& addresses) {
    for (const auto& completion : waiting) {
        completion(addresses);
    }
}

NameResolver::Addresses NameResolver::askSystem(const QByteArray& host) {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_ADDRCONFIG;
    addrinfo* found = nullptr;
    if (::getaddrinfo(host.constData(), nullptr, &hints, &found) != 0) {
        return {};
    }
    const std::unique_ptr<addrinfo, void (*)(addrinfo*)> owner(found, &::freeaddrinfo);
    Addresses addresses;
    for (const auto* entry = found; entry != nullptr && addresses.size() < addressLimit; entry = entry->ai_next) {
        std::array<char, NI_MAXHOST> text{};
        const bool isNumeric =
            ::getnameinfo(entry->ai_addr, entry->ai_addrlen, text.data(), text.size(), nullptr, 0, NI_NUMERICHOST) == 0;
        // An address that means something on one link only ("fe80::1%eth0") cannot be told to libcurl.
        if (isNumeric && std::string_view(text.data()).find('%') == std::string_view::npos) {
            addresses.emplace_back(text.data());
        }
    }
    return addresses;
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
