#include "cli/text/Output.hpp"

#include <stdio_ext.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <system_error>

#include "cli/Options.hpp"
#include "host/Interruption.hpp"

namespace cli {

namespace {

[[noreturn]] void raiseWriteError(int error) {
    if (error == EINTR) {
        __fpurge(stdout);  // whoever stops the command does not wait for one who reads it to the end
        host::Interruption::throwIfRequested();
    }
    if (error == EPIPE)
        throw OutputClosed();
    throw std::system_error(error, std::generic_category(), "The standard output cannot be written");
}

}  // namespace

void print(std::string_view text) {
    // Of so much, a pipe takes all or waits: a signal ends the wait for a reader only where nothing was taken yet.
    while (true) {
        host::Interruption::throwIfRequested();
        const std::string_view piece = text.substr(0, PIPE_BUF);
        if (std::fwrite(piece.data(), 1, piece.size(), stdout) < piece.size())
            raiseWriteError(errno);
        text.remove_prefix(piece.size());
        if (text.empty())
            return;
    }
}

void printNote(std::string_view text) {
    if (!options().quiet)
        print(text);
}

void printField(const std::string& label, const std::string& value) {
    print(label + std::string(12 - label.size(), ' ') + value + '\n');
}

void printIfRead(const std::function<void()>& tell) {
    try {
        tell();
    } catch (const OutputClosed&) {
        // Neither will anybody read what is printed later.
    }
}

void flushOutput() {
    if (std::fflush(stdout) != 0)
        raiseWriteError(errno);
}

std::string formatNumber(std::size_t number) {
    std::string digits = std::to_string(number);
    for (std::size_t place = digits.size(); place > 3;)
        digits.insert(place -= 3, 1, ',');
    return digits;
}

std::string formatCount(std::size_t number, const std::string& thing) {
    return formatNumber(number) + ' ' + thing + (number == 1 ? "" : "s");
}

std::string formatSize(std::uint64_t size) {
    constexpr std::array<const char*, 5> units{"kB", "MB", "GB", "TB", "PB"};
    if (size < 1000)
        return std::to_string(size) + " B";
    double scaled = static_cast<double>(size) / 1000;
    std::size_t unit = 0;
    for (; scaled >= 999.95 && unit + 1 < units.size(); ++unit)
        scaled /= 1000;
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%.1f %s", scaled, units[unit]);
    return text.data();
}

}  // namespace cli
