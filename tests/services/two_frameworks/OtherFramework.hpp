// A service framework with the names of CppMicroServices, as a host may bring one, and with objects of its own kind:
// every operation throws std::logic_error when it is called for an object of another framework.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#define OTHER_EXPORT __attribute__((visibility("default")))

namespace cppmicroservices {

/// What all objects of this framework begin with.
class OTHER_EXPORT Marked {
public:
    Marked();

protected:
    void requireOurs() const;

private:
    char mark_[200];
};

class Bundle;

class OTHER_EXPORT BundleContext : public Marked {
public:
    explicit operator bool() const;
    std::vector<Bundle> InstallBundles(const std::string& location);
};

class OTHER_EXPORT Bundle : public Marked {
public:
    BundleContext GetBundleContext() const;
    std::string GetSymbolicName() const;
    void Start();
    void Stop();
};

class OTHER_EXPORT FrameworkEvent : public Marked {};

class OTHER_EXPORT Framework : public Bundle {
public:
    void Init();
    FrameworkEvent WaitForStop(const std::chrono::milliseconds& timeout);
};

class OTHER_EXPORT FrameworkFactory {
public:
    Framework NewFramework();
};

}  // namespace cppmicroservices
