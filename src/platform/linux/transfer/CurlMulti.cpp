#include "platform/linux/transfer/CurlMulti.h"

#include <chrono>
#include <ctime>
#include <utility>

namespace skylet {

namespace {

/// A notifier may be dropped from inside its own signal.
void dropNotifier(QSocketNotifier* notifier) {
    notifier->setEnabled(false);
    notifier->deleteLater();
}

/// Of this thread.
std::chrono::nanoseconds processorTime() {
    timespec used{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
    return std::chrono::seconds(used.tv_sec) + std::chrono::nanoseconds(used.tv_nsec);
}

} // namespace

CurlMulti::CurlMulti(DoneHandler done, Connections connections) : done_(std::move(done)), multi_(curl_multi_init()) {
    if (!multi_) {
        qFatal("libcurl is out of memory");
    }
    timer_.setSingleShot(true);
    timer_.setTimerType(Qt::PreciseTimer);
    timer_.callOnTimeout([this] { act(CURL_SOCKET_TIMEOUT, 0); });
    curl_multi_setopt(multi_.get(), CURLMOPT_PIPELINING, static_cast<long>(connections));
    curl_multi_setopt(multi_.get(), CURLMOPT_SOCKETFUNCTION, &CurlMulti::watchSocket);
    curl_multi_setopt(multi_.get(), CURLMOPT_SOCKETDATA, this);
    curl_multi_setopt(multi_.get(), CURLMOPT_TIMERFUNCTION, &CurlMulti::setTimer);
    curl_multi_setopt(multi_.get(), CURLMOPT_TIMERDATA, this);
}

CurlMulti::~CurlMulti() {
    // Closing the connections still calls back for their sockets.
    multi_.reset();
}

void CurlMulti::add(CURL* handle) {
    curl_multi_add_handle(multi_.get(), handle);
}

void CurlMulti::remove(CURL* handle) {
    curl_multi_remove_handle(multi_.get(), handle);
}

int CurlMulti::watchSocket(CURL* /*handle*/, curl_socket_t socket, int what, void* self, void* /*socketData*/) {
    static_cast<CurlMulti*>(self)->watch(socket, what == CURL_POLL_IN || what == CURL_POLL_INOUT,
                                         what == CURL_POLL_OUT || what == CURL_POLL_INOUT);
    return 0;
}

int CurlMulti::setTimer(CURLM* /*multi*/, long timeoutMs, void* self) {
    auto& timer = static_cast<CurlMulti*>(self)->timer_;
    if (timeoutMs < 0) {
        timer.stop();
    } else {
        timer.start(std::chrono::milliseconds(timeoutMs));
    }
    return 0;
}

void CurlMulti::watch(curl_socket_t socket, bool read, bool write) {
    if (!read && !write) {
        notifiers_.erase(socket);
        return;
    }
    auto& notifiers =
        notifiers_.try_emplace(socket, Notifiers{{nullptr, dropNotifier}, {nullptr, dropNotifier}}).first->second;
    const auto set = [&](auto& notifier, bool wanted, QSocketNotifier::Type type, int event) {
        if (!wanted) {
            notifier.reset();
        } else if (!notifier) {
            notifier.reset(new QSocketNotifier(socket, type));
            QObject::connect(notifier.get(), &QSocketNotifier::activated, notifier.get(),
                             lifetime_.guard([this, event](QSocketDescriptor descriptor) {
                                 act(static_cast<curl_socket_t>(descriptor), event);
                             }));
        }
    };
    set(notifiers.read, read, QSocketNotifier::Read, CURL_CSELECT_IN);
    set(notifiers.write, write, QSocketNotifier::Write, CURL_CSELECT_OUT);
}

std::chrono::nanoseconds CurlMulti::effort() const {
    return effort_ + (workingSince_ ? processorTime() - *workingSince_ : std::chrono::nanoseconds(0));
}

void CurlMulti::act(curl_socket_t socket, int events) {
    int running = 0;
    workingSince_ = processorTime();
    curl_multi_socket_action(multi_.get(), socket, events, &running);
    effort_ = effort();
    workingSince_.reset();
    // One at a time: libcurl drops the messages of handles that a handler takes out.
    int queued = 0;
    while (const CURLMsg* message = curl_multi_info_read(multi_.get(), &queued)) {
        if (message->msg == CURLMSG_DONE) {
            CURL* handle = message->easy_handle;
            const CURLcode result = message->data.result;
            curl_multi_remove_handle(multi_.get(), handle);
            done_(handle, result);
        }
    }
}

} // namespace skylet
