#include "Hostility.h"
#include "Protocol.h"

#include <nghttp2/nghttp2.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <utility>

namespace skylet::test {

namespace {

struct Delete {
    void operator()(nghttp2_session* session) const { nghttp2_session_del(session); }
    void operator()(nghttp2_session_callbacks* callbacks) const { nghttp2_session_callbacks_del(callbacks); }
};

nghttp2_nv field(const std::string& name, const std::string& value) {
    const auto bytes = [](const std::string& text) {
        return reinterpret_cast<std::uint8_t*>(const_cast<char*>(text.data()));
    };
    return {bytes(name), bytes(value), name.size(), value.size(), NGHTTP2_NV_FLAG_NONE};
}

class Http2 final : public Protocol {
  public:
    Http2(Host& host, std::int32_t window) : host_(host) {
        nghttp2_session_callbacks* raw = nullptr;
        nghttp2_session_callbacks_new(&raw);
        const std::unique_ptr<nghttp2_session_callbacks, Delete> callbacks(raw);
        nghttp2_session_callbacks_set_on_header_callback(raw, &Http2::onHeader);
        nghttp2_session_callbacks_set_on_frame_recv_callback(raw, &Http2::onFrame);
        nghttp2_session_callbacks_set_on_frame_send_callback(raw, &Http2::onSent);
        nghttp2_session_callbacks_set_on_data_chunk_recv_callback(raw, &Http2::onData);
        nghttp2_session_callbacks_set_on_stream_close_callback(raw, &Http2::onClose);
        nghttp2_session* session = nullptr;
        nghttp2_session_server_new(&session, raw, this);
        session_.reset(session);
        const nghttp2_settings_entry settings{NGHTTP2_SETTINGS_INITIAL_WINDOW_SIZE, static_cast<std::uint32_t>(window)};
        nghttp2_submit_settings(session, NGHTTP2_FLAG_NONE, &settings, 1);
        nghttp2_session_set_local_window_size(session, NGHTTP2_FLAG_NONE, 0, Hostility::defaultWindow);
    }

    void received(std::span<const std::uint8_t> data) override {
        if (nghttp2_session_mem_recv(session_.get(), data.data(), data.size()) < 0) {
            host_.closeLater(Deed::close);
        }
    }

    void produce(std::string& out) override {
        for (const auto id : std::exchange(closed_, {})) {
            streams_.erase(id);
        }
        for (auto& [id, stream] : streams_) {
            progress(id, stream, out);
        }
        const std::uint8_t* data = nullptr;
        const auto size = nghttp2_session_mem_send(session_.get(), &data);
        if (size > 0) {
            out.append(reinterpret_cast<const char*>(data), static_cast<std::size_t>(size));
        }
    }

    std::size_t headSize(const std::string& produced) const override {
        constexpr std::size_t typeAt = 3;
        const bool isHead = produced.size() > typeAt && produced[typeAt] == NGHTTP2_HEADERS;
        return isHead ? produced.size() : 0;
    }

  private:
    struct Stream {
        std::vector<std::pair<std::string, std::string>> headers;
        std::shared_ptr<Exchange> exchange;
        bool answered = false;
        bool deferred = false;
        bool done = false;
    };

    void progress(std::int32_t id, Stream& stream, std::string& out) {
        if (!stream.exchange || stream.done) {
            return;
        }
        const auto& exchange = *stream.exchange;
        if (const Deed deed = exchange.deed(); deed != Deed::none) {
            carryOut(deed, id, stream, out);
        } else if (!exchange.behaviour().frames.empty()) {
            answerRaw(id, stream, out);
        } else if (!stream.answered && (!exchange.isUpload() || exchange.isBodyWhole() || exchange.isAnswerDue())) {
            answer(id, stream);
        } else if (stream.deferred && exchange.allowance(Clock::now()) > 0) {
            stream.deferred = false;
            nghttp2_session_resume_data(session_.get(), id);
        }
    }

    void answerRaw(std::int32_t id, Stream& stream, std::string& out) {
        const auto& behaviour = stream.exchange->behaviour();
        for (const auto& frame : behaviour.frames) {
            out += http2Frame(frame.type, frame.flags, frame.isOfStream ? id : 0, frame.payload);
        }
        stream.done = true;
        if (behaviour.then != Deed::none && behaviour.then != Deed::stall) {
            host_.closeLater(behaviour.then);
        }
        host_.end(stream.exchange);
    }

    void answer(std::int32_t id, Stream& stream) {
        stream.answered = true;
        auto& exchange = *stream.exchange;
        exchange.headSent();
        const auto& behaviour = exchange.behaviour();
        for (int i = 0; i < behaviour.interim; ++i) {
            const std::string status = "103";
            const nghttp2_nv interim = field(statusName, status);
            nghttp2_submit_headers(session_.get(), NGHTTP2_FLAG_NONE, id, nullptr, &interim, 1, nullptr);
        }
        const auto status = std::to_string(exchange.status());
        const auto length = std::to_string(exchange.length());
        const std::string lengthName = "content-length";
        std::vector<nghttp2_nv> fields{field(statusName, status)};
        if (exchange.status() != 204) {
            fields.push_back(field(lengthName, length));
        }
        for (const auto& [name, value] : behaviour.headers) {
            fields.push_back(field(name, value));
        }
        const bool hasBody = !exchange.isUpload() && (!exchange.isHead() || exchange.length() > 0);
        nghttp2_data_provider provider{};
        provider.read_callback = &Http2::read;
        nghttp2_submit_response(session_.get(), id, fields.data(), fields.size(), hasBody ? &provider : nullptr);
        if (exchange.isUpload() && !exchange.isBodyWhole() && behaviour.afterwards == "close") {
            host_.closeLater(Deed::close);
        }
    }

    void carryOut(Deed deed, std::int32_t id, Stream& stream, std::string& out) {
        stream.done = deed != Deed::flood && deed != Deed::stall && deed != Deed::pings;
        if (deed == Deed::garbage) {
            out += garbage;
            host_.closeLater(Deed::close);
        } else if (deed == Deed::flood) {
            flood(id, stream, out);
        } else if (deed == Deed::pings) {
            nghttp2_submit_ping(session_.get(), NGHTTP2_FLAG_NONE, nullptr);
        } else if (deed == Deed::cancel) {
            nghttp2_submit_rst_stream(session_.get(), NGHTTP2_FLAG_NONE, id, NGHTTP2_INTERNAL_ERROR);
        } else if (deed != Deed::stall) {
            host_.closeLater(deed);
        }
    }

    /// A head in ever more CONTINUATION frames, which nghttp2 would not send (RFC 9113, 6.10).
    static void flood(std::int32_t id, Stream& stream, std::string& out) {
        // A literal field that is not indexed, with a new name (RFC 7541, 6.2.2); the value's length as 127 + the rest.
        const std::string name = "x-flood";
        const auto rest = static_cast<unsigned>(floodValue.size()) - 127;
        std::string block;
        if (!stream.answered) {
            block += static_cast<char>(0x88); // :status 200
        }
        block += '\0';
        block += static_cast<char>(name.size());
        block += name;
        block += static_cast<char>(0x7f);
        block += static_cast<char>(0x80U | (rest & 0x7fU));
        block += static_cast<char>(rest >> 7U);
        block += floodValue;
        constexpr char headersFrame = 1;
        constexpr char continuationFrame = 9;
        out += std::string{static_cast<char>(block.size() >> 16U),
                           static_cast<char>(block.size() >> 8U),
                           static_cast<char>(block.size()),
                           stream.answered ? continuationFrame : headersFrame,
                           0,
                           0,
                           0,
                           static_cast<char>(id >> 8),
                           static_cast<char>(id)};
        out += block;
        stream.answered = true;
    }

    static Http2& of(void* self) { return *static_cast<Http2*>(self); }

    static int onHeader(nghttp2_session* /*session*/, const nghttp2_frame* frame, const std::uint8_t* name,
                        std::size_t nameSize, const std::uint8_t* value, std::size_t valueSize, std::uint8_t /*flags*/,
                        void* self) {
        of(self).streams_[frame->hd.stream_id].headers.emplace_back(
            std::string(reinterpret_cast<const char*>(name), nameSize),
            std::string(reinterpret_cast<const char*>(value), valueSize));
        return 0;
    }

    static int onFrame(nghttp2_session* /*session*/, const nghttp2_frame* frame, void* self) {
        auto& http = of(self);
        const bool isHead = frame->hd.type == NGHTTP2_HEADERS;
        if (!isHead && frame->hd.type != NGHTTP2_DATA) {
            return 0;
        }
        const auto place = http.streams_.find(frame->hd.stream_id);
        if (place == http.streams_.end()) {
            return 0;
        }
        auto& stream = place->second;
        if (isHead && !stream.exchange) {
            http.begin(frame->hd.stream_id, stream);
        }
        if ((frame->hd.flags & NGHTTP2_FLAG_END_STREAM) != 0 && stream.exchange->isUpload()) {
            stream.exchange->bodyWhole();
        }
        return 0;
    }

    static int onSent(nghttp2_session* session, const nghttp2_frame* frame, void* self) {
        const auto& streams = of(self).streams_;
        const auto place = streams.find(frame->hd.stream_id);
        if (place == streams.end() || (frame->hd.flags & NGHTTP2_FLAG_END_STREAM) == 0) {
            return 0;
        }
        const auto& exchange = *place->second.exchange;
        if (exchange.stopsReading() && !exchange.isBodyWhole() && exchange.behaviour().afterwards == "stop") {
            // The rest is not wanted (RFC 9113, 8.1).
            nghttp2_submit_rst_stream(session, NGHTTP2_FLAG_NONE, frame->hd.stream_id, NGHTTP2_NO_ERROR);
        }
        return 0;
    }

    void begin(std::int32_t id, Stream& stream) {
        std::string method;
        std::string path;
        for (const auto& [name, value] : stream.headers) {
            method = name == ":method" ? value : method;
            path = name == ":path" ? value : path;
        }
        stream.exchange = host_.begin(method, path, stream.headers);
        stream.exchange->setStream(id);
    }

    static int onData(nghttp2_session* /*session*/, std::uint8_t /*flags*/, std::int32_t id,
                      const std::uint8_t* /*data*/, std::size_t size, void* self) {
        auto& http = of(self);
        if (const auto place = http.streams_.find(id); place != http.streams_.end()) {
            place->second.exchange->move(static_cast<std::int64_t>(size));
        }
        return 0;
    }

    static int onClose(nghttp2_session* /*session*/, std::int32_t id, std::uint32_t /*error*/, void* self) {
        auto& http = of(self);
        if (const auto place = http.streams_.find(id); place != http.streams_.end()) {
            if (place->second.exchange) {
                http.host_.end(place->second.exchange);
            }
            http.closed_.push_back(id);
        }
        return 0;
    }

    static ssize_t read(nghttp2_session* /*session*/, std::int32_t id, std::uint8_t* buffer, std::size_t length,
                        std::uint32_t* flags, nghttp2_data_source* /*source*/, void* self) {
        auto& stream = of(self).streams_.at(id);
        auto& exchange = *stream.exchange;
        const auto left = exchange.length() - exchange.moved();
        const auto count = std::min({left, exchange.allowance(Clock::now()), static_cast<std::int64_t>(length)});
        if (count == 0 && left > 0) {
            stream.deferred = true;
            return NGHTTP2_ERR_DEFERRED;
        }
        std::memset(buffer, 0, static_cast<std::size_t>(count));
        exchange.move(count);
        if (exchange.isBodyWhole()) {
            *flags |= NGHTTP2_DATA_FLAG_EOF;
        }
        return count;
    }

    inline static const std::string statusName = ":status";

    Host& host_;
    std::unique_ptr<nghttp2_session, Delete> session_;
    std::map<std::int32_t, Stream> streams_;
    std::vector<std::int32_t> closed_;
};

} // namespace

std::unique_ptr<Protocol> makeHttp2(Host& host, std::int32_t window) {
    return std::make_unique<Http2>(host, window);
}

} // namespace skylet::test
