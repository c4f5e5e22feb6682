/// A way to a PostgreSQL server that breaks on purpose.
#pragma once

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "tests/support/TempFolder.hpp"

namespace test {

/// Passes on what a client and the server say, message by message, and cuts the connection after one of them. Fork only
/// before it is made.
class CuttingProxy {
public:
    /// @param server the socket of the server
    explicit CuttingProxy(std::string server) : server_(std::move(server)), listener_(socket(AF_UNIX, SOCK_STREAM, 0)) {
        const sockaddr_un address = addressOf((folder_ / ".s.PGSQL.5432").string());
        if (bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
            listen(listener_, 8) != 0)
            throw std::runtime_error("cannot listen");
        thread_ = std::thread([this] { serve(); });
    }

    ~CuttingProxy() {
        isOver_ = true;
        shutdown(listener_, SHUT_RDWR);
        thread_.join();
        close(listener_);
    }

    CuttingProxy(const CuttingProxy&) = delete;
    CuttingProxy& operator=(const CuttingProxy&) = delete;

    /// What a client takes for its "host".
    std::string host() const { return folder_.std(); }

    /// From now on counts messages, both ways, and cuts the connection after the one with that number; 0 for none.
    /// @param isForGood whether nobody can connect after the cut
    void cutAfter(int message, bool isForGood) {
        isForGood_ = isForGood;
        isCut_ = false;
        count_ = 0;
        cutAfter_ = message;
    }

    int count() const { return count_; }

    /// How often a client has waited for an answer since the last call.
    int takeRoundTrips() { return roundTrips_.exchange(0); }

    /// Lets each round trip take so much longer.
    void delay(std::chrono::milliseconds time) { delay_ = time; }

    bool isCut() const { return isCut_; }

    /// How many connections there have been.
    int connections() const { return connections_; }

private:
    /// Takes messages out of a stream: a type, but for the first one of a client, and a length that counts itself.
    class Framing {
    public:
        explicit Framing(bool hasType) : hasType_(hasType) {}

        /// @return the length of the first message in `bytes`, 0 if it is not complete
        std::size_t next(const std::string& bytes) {
            const std::size_t start = hasType_ ? 1 : 0;
            if (bytes.size() < start + 4)
                return 0;
            std::size_t length = 0;
            for (std::size_t i = 0; i < 4; ++i)
                length = length << 8U | static_cast<unsigned char>(bytes[start + i]);
            if (bytes.size() < start + length)
                return 0;
            hasType_ = true;
            return start + length;
        }

    private:
        bool hasType_;
    };

    static sockaddr_un addressOf(const std::string& name) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        name.copy(address.sun_path, sizeof address.sun_path - 1);
        return address;
    }

    void serve() {
        while (!isOver_) {
            const int client = accept(listener_, nullptr, nullptr);
            if (client < 0)
                continue;
            ++connections_;
            const int server = socket(AF_UNIX, SOCK_STREAM, 0);
            const sockaddr_un address = addressOf(server_);
            if (!(isCut_ && isForGood_) &&
                connect(server, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
                pass(client, server);
            close(server);
            close(client);
        }
    }

    void pass(int client, int server) {
        std::array<int, 2> ends{client, server};
        std::array<std::string, 2> held;
        std::array<Framing, 2> framings{Framing(false), Framing(true)};
        while (!isOver_) {
            std::array<pollfd, 2> polled{pollfd{client, POLLIN, 0}, pollfd{server, POLLIN, 0}};
            poll(polled.data(), polled.size(), 20);
            for (std::size_t from = 0; from < 2; ++from) {
                if (polled.at(from).revents == 0)
                    continue;
                std::array<char, 65536> buffer{};
                const auto size = ::read(ends.at(from), buffer.data(), buffer.size());
                if (size <= 0)
                    return;
                held.at(from).append(buffer.data(), static_cast<std::size_t>(size));
                while (const std::size_t length = framings.at(from).next(held.at(from))) {
                    constexpr char sync = 'S';
                    if (from == 0 && held.at(from).front() == sync) {
                        ++roundTrips_;
                        std::this_thread::sleep_for(delay_.load());
                    }
                    if (send(ends.at(1 - from), held.at(from).data(), length, MSG_NOSIGNAL) < 0)
                        return;
                    held.at(from).erase(0, length);
                    if (++count_ == cutAfter_) {
                        isCut_ = true;
                        return;
                    }
                }
            }
        }
    }

    TempFolder folder_{memoryFolder()};
    std::string server_;
    int listener_;
    std::atomic<int> count_ = 0;
    std::atomic<int> cutAfter_ = 0;
    std::atomic<int> connections_ = 0;
    std::atomic<int> roundTrips_ = 0;
    std::atomic<std::chrono::milliseconds> delay_{};
    std::atomic<bool> isForGood_ = false;
    std::atomic<bool> isCut_ = false;
    std::atomic<bool> isOver_ = false;
    std::thread thread_;
};

}  // namespace test
