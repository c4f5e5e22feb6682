#include "tests/services/two_frameworks/OtherFramework.hpp"

#include <algorithm>
#include <iterator>
#include <stdexcept>

namespace cppmicroservices {

namespace {

constexpr char mark = '\x5A';

}  // namespace

Marked::Marked() {
    std::fill(std::begin(mark_), std::end(mark_), mark);
}

void Marked::requireOurs() const {
    if (!std::all_of(std::begin(mark_), std::end(mark_), [](char c) { return c == mark; }))
        throw std::logic_error("the host's framework was called for an object of another one");
}

BundleContext::operator bool() const {
    requireOurs();
    return true;
}

std::vector<Bundle> BundleContext::InstallBundles(const std::string& location) {
    requireOurs();
    return std::vector<Bundle>(location.empty() ? 0 : 1);
}

BundleContext Bundle::GetBundleContext() const {
    requireOurs();
    return {};
}

std::string Bundle::GetSymbolicName() const {
    requireOurs();
    return "of the host";
}

void Bundle::Start() {
    requireOurs();
}

void Bundle::Stop() {
    requireOurs();
}

void Framework::Init() {
    requireOurs();
}

FrameworkEvent Framework::WaitForStop(const std::chrono::milliseconds& /*timeout*/) {
    requireOurs();
    return {};
}

Framework FrameworkFactory::NewFramework() {
    return {};
}

}  // namespace cppmicroservices
