// lab_link NAMESPACE_A DEVICE_A NAMESPACE_B DEVICE_B
//
// Joins two named network namespaces by a point-to-point link: makes a TUN device in each and carries the IP packets
// between them, "up" from A to B and "down" back, with a delay, a rate, loss and black holes that can be changed at any
// time. It gives the devices neither addresses nor routes. Prints "ready", then obeys one command a line on standard
// input and answers each with one line; ends when standard input ends. WAY is up, down or both.
//
//   delay WAY MS            one-way delay
//   jitter WAY MS SEED      up to this much more delay, for each packet another random part of it; the order stays
//   reorder WAY SHARE SEED  this share of the packets, chosen at random, overtakes those that are under way
//   rate WAY KBIT           serialisation rate in kbit/s; 0: unlimited
//   queue WAY MS            longest time a packet may wait for its turn at that rate; longer: it is dropped
//   loss WAY SHARE SEED     drops this share of the packets at random, the same ones for the same seed
//   hole WAY on|off         drops everything, what is already under way too
//   mute|unmute ADDRESS     drops everything to and from this address, or no longer
//   largest BYTES ADDRESS   drops IP packets to and from this address that are larger, and tells nobody
//   gate off|drop|reset     what becomes of a SYN from A: it passes, is dropped, or is answered with an RST
//   gate accept             the link itself accepts each connection from A, and drops all else of TCP
//   flows off|drop|reset IDLE BYTES
//                           forgets a TCP connection over which nothing went for IDLE seconds, or once it has carried
//                           so many bytes (0: no limit), and drops its packets from then on or answers them with an RST
//   forget                  forgets all connections that there are
//   stats                   JSON: packets and IP bytes that were put on the link, and how many packets were dropped
//   trace                   JSON: every packet: seconds (monotonic), way, far address, near port, far port, bytes, TCP
//                           flags
//   reset                   forgets the counters and the trace

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/if_tun.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <deque>
#include <functional>
#include <iomanip>
#include <iostream>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <span>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <tuple>
#include <utility>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock; // CLOCK_MONOTONIC, the timerfd's clock too
using Time = Clock::time_point;
using Milliseconds = std::chrono::duration<double, std::milli>;

// An idle processor takes this long to wake up: the link wakes early and watches the clock for the rest.
constexpr auto wakeUp = std::chrono::microseconds(250);
constexpr auto defaultQueue = std::chrono::milliseconds(200);
constexpr std::size_t largestPacket = 65536;
constexpr std::size_t longestTrace = 200'000;
constexpr int packetsPerTurn = 64;

class FileDescriptor {
  public:
    explicit FileDescriptor(int fd, const std::string& what) : fd_(fd) {
        if (fd < 0) {
            throw std::system_error(errno, std::generic_category(), what);
        }
    }
    ~FileDescriptor() {
        if (fd_ >= 0) {
            close(fd_);
        }
    }
    FileDescriptor(FileDescriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    FileDescriptor& operator=(FileDescriptor&&) = delete;

    int get() const { return fd_; }

  private:
    int fd_;
};

/// What a packet says about itself, seen from the link: the far end is the one on B's side.
struct Header {
    std::string farAddress;
    unsigned nearPort = 0;
    unsigned farPort = 0;
    bool isTcp = false;
    unsigned tcpFlags = 0;
};

unsigned bigEndian16(std::span<const std::uint8_t> packet, std::size_t at) {
    return at + 1 < packet.size() ? packet[at] * 256U + packet[at + 1] : 0;
}

std::optional<Header> parse(std::span<const std::uint8_t> packet, bool up) {
    if (packet.empty()) {
        return std::nullopt;
    }
    const bool v6 = packet[0] >> 4U == 6;
    const std::size_t fixedLength = v6 ? 40 : 20;
    if (packet.size() < fixedLength) {
        return std::nullopt;
    }
    const std::size_t addressLength = v6 ? 16 : 4;
    const std::size_t source = v6 ? 8 : 12;
    std::array<char, INET6_ADDRSTRLEN> text{};
    inet_ntop(v6 ? AF_INET6 : AF_INET, &packet[up ? source + addressLength : source], text.data(), text.size());
    Header header;
    header.farAddress = text.data();
    const unsigned protocol = v6 ? packet[6] : packet[9];
    if (protocol == IPPROTO_TCP || protocol == IPPROTO_UDP) {
        const std::size_t transport = v6 ? fixedLength : std::size_t{packet[0] & 15U} * 4;
        header.nearPort = bigEndian16(packet, up ? transport : transport + 2);
        header.farPort = bigEndian16(packet, up ? transport + 2 : transport);
        header.isTcp = protocol == IPPROTO_TCP;
        header.tcpFlags = header.isTcp ? bigEndian16(packet, transport + 12) & 255U : 0;
    }
    return header;
}

enum class Gate : std::uint8_t { off, drop, reset, accept };

Gate gateNamed(const std::string& name) {
    static const std::map<std::string, Gate> gates{
        {"off", Gate::off}, {"drop", Gate::drop}, {"reset", Gate::reset}, {"accept", Gate::accept}};
    return gates.at(name);
}

constexpr unsigned tcpSyn = 0x02;
constexpr unsigned tcpReset = 0x04;
constexpr unsigned tcpAck = 0x10;

bool opensConnection(const Header& header) {
    return (header.tcpFlags & (tcpSyn | tcpAck)) == tcpSyn;
}

/// The Internet checksum (RFC 1071) of an even number of bytes, on top of `sum`.
std::uint16_t checksum(std::span<const std::uint8_t> bytes, std::uint32_t sum = 0) {
    for (std::size_t at = 0; at < bytes.size(); at += 2) {
        sum += bigEndian16(bytes, at);
    }
    while (sum >> 16U != 0) {
        sum = (sum & 0xffffU) + (sum >> 16U);
    }
    return static_cast<std::uint16_t>(~sum);
}

void putBigEndian16(std::span<std::uint8_t> packet, std::size_t at, unsigned value) {
    packet[at] = static_cast<std::uint8_t>(value >> 8U);
    packet[at + 1] = static_cast<std::uint8_t>(value);
}

/// The packet of TCP, without data, that answers `packet`, a whole one from A: an RST, or to a SYN a SYN that accepts
/// it.
std::vector<std::uint8_t> answerTo(std::span<const std::uint8_t> packet, unsigned flags) {
    constexpr std::size_t tcpLength = 20;
    const bool v6 = packet[0] >> 4U == 6;
    const std::size_t length = v6 ? 40 : 20;
    const std::size_t source = v6 ? 8 : 12;
    const std::size_t addressLength = v6 ? 16 : 4;
    std::vector<std::uint8_t> reply(length + tcpLength);
    if (v6) {
        reply[0] = 0x60;
        putBigEndian16(reply, 4, tcpLength);
        reply[6] = IPPROTO_TCP;
        reply[7] = 64; // hop limit
    } else {
        reply[0] = 0x45;
        putBigEndian16(reply, 2, static_cast<unsigned>(reply.size()));
        reply[8] = 64; // time to live
        reply[9] = IPPROTO_TCP;
    }
    std::copy_n(&packet[source], addressLength, &reply[source + addressLength]);
    std::copy_n(&packet[source + addressLength], addressLength, &reply[source]);
    if (!v6) {
        putBigEndian16(reply, 10, checksum(std::span(reply).first(length)));
    }
    const auto asked = packet.subspan(v6 ? length : std::size_t{packet[0] & 15U} * 4);
    const auto tcp = std::span(reply).subspan(length);
    putBigEndian16(tcp, 0, bigEndian16(asked, 2));
    putBigEndian16(tcp, 2, bigEndian16(asked, 0));
    std::copy_n(&asked[8], 4, &tcp[4]); // what it expects next
    const std::uint32_t acknowledged = (bigEndian16(asked, 4) << 16U | bigEndian16(asked, 6)) + 1;
    putBigEndian16(tcp, 8, acknowledged >> 16U);
    putBigEndian16(tcp, 10, acknowledged & 0xffffU);
    tcp[12] = tcpLength / 4 << 4U;
    tcp[13] = static_cast<std::uint8_t>(flags | tcpAck);
    putBigEndian16(tcp, 14, 0xffff); // window
    putBigEndian16(tcp, 16, checksum(std::span(reply).subspan(source), IPPROTO_TCP + tcpLength));
    return reply;
}

struct Count {
    std::uint64_t packets = 0;
    std::uint64_t bytes = 0;

    void add(std::size_t size) {
        ++packets;
        bytes += size;
    }
};

std::string json(const Count& count) {
    return R"({"packets": )" + std::to_string(count.packets) + R"(, "bytes": )" + std::to_string(count.bytes) + "}";
}

/// One way of the link: what it does to packets, and those that are under way.
class Way {
  public:
    Milliseconds delay{0};
    Milliseconds queue{defaultQueue};
    double bitsPerSecond = 0;
    bool hole = false;

    void setLoss(double share, unsigned seed) {
        loss_ = std::bernoulli_distribution(share);
        random_.seed(seed);
    }

    void setJitter(Milliseconds most, unsigned seed) {
        jitter_ = std::uniform_real_distribution<double>(0, most.count());
        randomForJitter_.seed(seed);
    }

    void setReorder(double share, unsigned seed) {
        reorder_ = std::bernoulli_distribution(share);
        randomForOrder_.seed(seed);
    }

    void enter(std::span<const std::uint8_t> packet, const Header& header, bool muted, Time now) {
        total_.add(packet.size());
        far_[header.farAddress].add(packet.size());
        const Time start = bitsPerSecond > 0 ? std::max(now, free_) : now;
        if (muted || hole || loss_(random_) || start - now > queue) {
            ++dropped_;
            return;
        }
        free_ = start;
        if (bitsPerSecond > 0) {
            free_ += std::chrono::duration_cast<Clock::duration>(
                std::chrono::duration<double>(static_cast<double>(packet.size()) * 8 / bitsPerSecond));
        }
        Packet entered{free_, {packet.begin(), packet.end()}};
        if (reorder_(randomForOrder_)) {
            const auto later = std::upper_bound(underway_.begin(), underway_.end(), free_,
                                                [](Time due, const Packet& other) { return due < other.due; });
            underway_.insert(later, std::move(entered));
            return;
        }
        // a shorter delay lets no packet overtake those before it
        const Milliseconds wholeDelay = delay + Milliseconds(jitter_(randomForJitter_));
        entered.due = std::max(free_ + std::chrono::duration_cast<Clock::duration>(wholeDelay),
                               underway_.empty() ? Time::min() : underway_.back().due);
        underway_.push_back(std::move(entered));
    }

    std::optional<Time> nextDue() const {
        return underway_.empty() ? std::nullopt : std::optional(underway_.front().due);
    }

    void deliver(const FileDescriptor& device, Time now) {
        while (!underway_.empty() && underway_.front().due <= now) {
            const auto& bytes = underway_.front().bytes;
            if (hole || write(device.get(), bytes.data(), bytes.size()) < 0) {
                ++dropped_;
            }
            underway_.pop_front();
        }
    }

    void reset() {
        total_ = {};
        far_.clear();
        dropped_ = 0;
    }

    std::string stats() const {
        std::string text = json(total_);
        text.pop_back();
        text += R"(, "dropped": )" + std::to_string(dropped_) + R"(, "far": {)";
        for (const char* separator = ""; const auto& [address, count] : far_) {
            text += std::exchange(separator, ", ") + ('"' + address + "\": ") + json(count);
        }
        return text + "}}";
    }

  private:
    struct Packet {
        Time due;
        std::vector<std::uint8_t> bytes;
    };

    std::deque<Packet> underway_;
    Time free_{}; // when the last packet has left the sender
    std::bernoulli_distribution loss_{0};
    std::mt19937 random_;
    std::uniform_real_distribution<double> jitter_{0, 0};
    std::mt19937 randomForJitter_;
    std::bernoulli_distribution reorder_{0};
    std::mt19937 randomForOrder_;
    Count total_;
    std::map<std::string, Count> far_;
    std::uint64_t dropped_ = 0;
};

/// What a NAT remembers of the TCP connections through it.
class Flows {
  public:
    Gate whenUnknown = Gate::off;
    std::chrono::duration<double> idleLimit{0};
    std::uint64_t byteLimit = 0;

    /// Whether it knows the connection that the packet belongs to.
    bool pass(const Header& header, std::size_t size, bool up, Time now) {
        if (whenUnknown == Gate::off || !header.isTcp) {
            return true;
        }
        const auto key = std::tuple(header.farAddress, header.nearPort, header.farPort);
        if (up && opensConnection(header)) {
            flows_[key] = {now, 0};
        }
        const auto flow = flows_.find(key);
        if (flow == flows_.end()) {
            return false;
        }
        auto& [last, bytes] = flow->second;
        bytes += size;
        if ((idleLimit.count() > 0 && now - last > idleLimit) || (byteLimit > 0 && bytes > byteLimit)) {
            flows_.erase(flow);
            return false;
        }
        last = now;
        return true;
    }

    void forget() { flows_.clear(); }

  private:
    std::map<std::tuple<std::string, unsigned, unsigned>, std::pair<Time, std::uint64_t>> flows_;
};

/// A TUN device in a namespace. It goes when its descriptor is closed.
FileDescriptor makeDevice(const std::string& netns, const std::string& name) {
    const FileDescriptor space(open(("/run/netns/" + netns).c_str(), O_RDONLY | O_CLOEXEC), netns);
    if (setns(space.get(), CLONE_NEWNET) < 0) {
        throw std::system_error(errno, std::generic_category(), "setns " + netns);
    }
    FileDescriptor device(open("/dev/net/tun", O_RDWR | O_NONBLOCK | O_CLOEXEC), "/dev/net/tun");
    ifreq request{};
    name.copy(request.ifr_name, IFNAMSIZ - 1);
    request.ifr_flags = IFF_TUN | IFF_NO_PI;
    if (ioctl(device.get(), TUNSETIFF, &request) < 0) {
        throw std::system_error(errno, std::generic_category(), "TUNSETIFF " + name);
    }
    return device;
}

class Link {
  public:
    Link(FileDescriptor a, FileDescriptor b)
        : a_(std::move(a)), b_(std::move(b)), timer_(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK), "timerfd"),
          poll_(epoll_create1(EPOLL_CLOEXEC), "epoll") {
        for (const int fd : {STDIN_FILENO, a_.get(), b_.get(), timer_.get()}) {
            epoll_event event{};
            event.events = EPOLLIN;
            if (fd == timer_.get()) {
                event.events |= EPOLLET; // only wakes: each turn delivers what is due
            }
            event.data.fd = fd;
            if (epoll_ctl(poll_.get(), EPOLL_CTL_ADD, fd, &event) < 0) {
                throw std::system_error(errno, std::generic_category(), "epoll_ctl");
            }
        }
    }

    void run() {
        while (!ended_) {
            const auto due = nextDue();
            const bool soon = due && *due - Clock::now() <= wakeUp;
            if (!soon) {
                armTimer(due);
            }
            epoll_event event{};
            if (epoll_wait(poll_.get(), &event, 1, soon ? 0 : -1) == 1) {
                if (event.data.fd == STDIN_FILENO) {
                    readCommands();
                } else if (event.data.fd != timer_.get()) {
                    readPackets(event.data.fd == a_.get());
                }
            }
            up_.deliver(b_, Clock::now());
            down_.deliver(a_, Clock::now());
        }
    }

  private:
    void readPackets(bool up) {
        for (int i = 0; i < packetsPerTurn; ++i) {
            const ssize_t size = read((up ? a_ : b_).get(), buffer_.data(), buffer_.size());
            if (size <= 0) {
                return;
            }
            const auto packet = std::span(buffer_).first(static_cast<std::size_t>(size));
            if (const auto header = parse(packet, up)) {
                const Time now = Clock::now();
                const bool opens = up && opensConnection(*header);
                const bool isStopped = gate_ == Gate::accept ? header->isTcp : gate_ != Gate::off && opens;
                const bool isKnown = flows_.pass(*header, packet.size(), up, now);
                const auto limit = largest_.find(header->farAddress);
                const bool isTooLarge = limit != largest_.end() && packet.size() > limit->second;
                const bool isMuted = muted_.contains(header->farAddress);
                (up ? up_ : down_).enter(packet, *header, isStopped || !isKnown || isTooLarge || isMuted, now);
                record(*header, packet.size(), up, now);
                if (opens && gate_ == Gate::accept) {
                    answer(packet, tcpSyn, now);
                } else if ((isStopped && gate_ == Gate::reset) ||
                           (up && !isKnown && flows_.whenUnknown == Gate::reset)) {
                    answer(packet, tcpReset, now);
                }
            }
        }
    }

    void answer(std::span<const std::uint8_t> packet, unsigned flags, Time now) {
        const auto reply = answerTo(packet, flags);
        if (const auto header = parse(reply, false)) {
            down_.enter(reply, *header, false, now);
            record(*header, reply.size(), false, now);
        }
    }

    void record(Header header, std::size_t size, bool up, Time now) {
        if (trace_.size() < longestTrace) {
            trace_.push_back({now, up, size, std::move(header)});
        }
    }

    std::optional<Time> nextDue() const {
        const auto up = up_.nextDue();
        const auto down = down_.nextDue();
        return up && down ? std::min(up, down) : std::max(up, down); // an absent one counts as the smallest
    }

    void armTimer(std::optional<Time> due) {
        itimerspec when{};
        if (due) {
            const auto wake = (*due - wakeUp).time_since_epoch();
            const auto seconds = std::chrono::floor<std::chrono::seconds>(wake);
            when.it_value = {.tv_sec = seconds.count(), .tv_nsec = (wake - seconds).count()};
        }
        timerfd_settime(timer_.get(), TFD_TIMER_ABSTIME, &when, nullptr);
    }

    void readCommands() {
        std::array<char, 4096> buffer{};
        const ssize_t size = read(STDIN_FILENO, buffer.data(), buffer.size());
        if (size <= 0) {
            ended_ = true;
            return;
        }
        input_.append(buffer.data(), static_cast<std::size_t>(size));
        for (auto end = input_.find('\n'); end != std::string::npos; end = input_.find('\n')) {
            std::istringstream words(input_.substr(0, end));
            input_.erase(0, end + 1);
            words.exceptions(std::ios::failbit);
            try {
                std::cout << obey(words) << std::endl;
            } catch (const std::exception& error) {
                std::cout << "error: " << error.what() << std::endl;
            }
        }
    }

    std::string obey(std::istream& words) {
        const auto next = [&words](auto value) {
            words >> value;
            return value;
        };
        const auto command = next(std::string());
        if (command == "stats") {
            return R"({"up": )" + up_.stats() + R"(, "down": )" + down_.stats() + "}";
        }
        if (command == "trace") {
            return trace();
        }
        if (command == "reset") {
            up_.reset();
            down_.reset();
            trace_.clear();
        } else if (command == "gate") {
            gate_ = gateNamed(next(std::string()));
        } else if (command == "largest") {
            const auto bytes = next(std::size_t());
            largest_[next(std::string())] = bytes;
        } else if (command == "flows") {
            flows_.whenUnknown = gateNamed(next(std::string()));
            flows_.idleLimit = std::chrono::duration<double>(next(double()));
            flows_.byteLimit = next(std::uint64_t());
        } else if (command == "forget") {
            flows_.forget();
        } else if (command == "mute") {
            muted_.insert(next(std::string()));
        } else if (command == "unmute") {
            muted_.erase(next(std::string()));
        } else {
            const auto chosen = ways(next(std::string()));
            const auto change = setting(command, words);
            std::for_each(chosen.begin(), chosen.end(), [&](Way* way) { change(*way); });
        }
        return "ok";
    }

    std::vector<Way*> ways(const std::string& name) {
        if (name == "both") {
            return {&up_, &down_};
        }
        if (name != "up" && name != "down") {
            throw std::invalid_argument("no such way: " + name);
        }
        return {name == "up" ? &up_ : &down_};
    }

    static std::function<void(Way&)> setting(const std::string& command, std::istream& words) {
        if (command == "hole") {
            std::string word;
            words >> word;
            return [on = word == "on"](Way& way) { way.hole = on; };
        }
        double value = 0;
        words >> value;
        if (command == "delay") {
            return [value](Way& way) { way.delay = Milliseconds(value); };
        }
        if (command == "queue") {
            return [value](Way& way) { way.queue = Milliseconds(value); };
        }
        if (command == "rate") {
            return [value](Way& way) { way.bitsPerSecond = value * 1000; };
        }
        return randomSetting(command, value, words);
    }

    static std::function<void(Way&)> randomSetting(const std::string& command, double value, std::istream& words) {
        unsigned seed = 0;
        words >> seed;
        if (command == "loss") {
            return [value, seed](Way& way) { way.setLoss(value, seed); };
        }
        if (command == "jitter") {
            return [value, seed](Way& way) { way.setJitter(Milliseconds(value), seed); };
        }
        if (command == "reorder") {
            return [value, seed](Way& way) { way.setReorder(value, seed); };
        }
        throw std::invalid_argument("no such command: " + command);
    }

    std::string trace() const {
        std::ostringstream text;
        text << std::fixed << std::setprecision(6) << '[';
        for (const char* separator = ""; const auto& [time, up, size, header] : trace_) {
            text << std::exchange(separator, ", ") << '['
                 << std::chrono::duration<double>(time.time_since_epoch()).count()
                 << (up ? R"(, "up", ")" : R"(, "down", ")") << header.farAddress << "\", " << header.nearPort << ", "
                 << header.farPort << ", " << size << ", " << header.tcpFlags << ']';
        }
        return text.str() + "]";
    }

    struct TracedPacket {
        Time time;
        bool up;
        std::size_t size;
        Header header;
    };

    FileDescriptor a_;
    FileDescriptor b_;
    FileDescriptor timer_;
    FileDescriptor poll_;
    Way up_;
    Way down_;
    std::set<std::string> muted_;
    std::map<std::string, std::size_t> largest_;
    Gate gate_ = Gate::off;
    Flows flows_;
    std::deque<TracedPacket> trace_;
    std::array<std::uint8_t, largestPacket> buffer_{};
    std::string input_;
    bool ended_ = false;
};

/// Keeps the delay exact on a busy machine. Nothing is lost where it is not allowed.
void askForRealTime() {
    const sched_param priority{.sched_priority = 1};
    sched_setscheduler(0, SCHED_FIFO, &priority);
}

} // namespace

int main(int argc, char** argv) {
    try {
        const std::vector<std::string> arguments(argv + 1, argv + argc);
        if (arguments.size() != 4) {
            throw std::invalid_argument("usage: lab_link NAMESPACE_A DEVICE_A NAMESPACE_B DEVICE_B");
        }
        FileDescriptor a = makeDevice(arguments[0], arguments[1]);
        FileDescriptor b = makeDevice(arguments[2], arguments[3]);
        Link link(std::move(a), std::move(b));
        askForRealTime();
        std::cout << "ready" << std::endl;
        link.run();
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "lab_link: " << error.what() << '\n';
        return 1;
    }
}
