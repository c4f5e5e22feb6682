// What every header of the service framework shares: the export marks and the small macros that bundles see.
//
// This is an implementation of the part of CppMicroServices 3.8 that this project and its bundles use, under the
// same headers, names, macros and messages, so that code written against it compiles unchanged against the real
// one. It builds where that is not installed. Any object may be used from several threads where its header says so.
//
// Left out, and therefore a compile error rather than a surprise:
//   - listeners, hooks, trackers, events other than the one that WaitForStop returns, log sinks;
//   - service factories and prototype scope; changing the properties of a registered service;
//   - bundle resources, manifests, versions, headers, data files and start options;
//   - framework launch properties, AnyMap, LDAPProp, comparison and text and JSON forms of Any, which holds what can be
//     written to a stream, and containers of it, as there;
//   - of a FrameworkEvent, all but its type, one of three, and its bundle: no message and no exception;
//   - what the handles have for keeping them in containers or printing them: hashes, order, stream output;
//   - more than one bundle in a shared object, bundles in executables and static libraries.
// Different by design:
//   - a bundle's shared object is loaded when it is installed, so one that cannot be loaded is refused there and
//     not first at Start; it is never unloaded, so a service object may outlive its bundle, its framework included;
//   - an exception of an activator reaches the caller of Start or Stop nested in the error that names the bundle;
//   - starting or stopping a bundle from its own activator fails or does nothing, where the real one blocks;
//   - what was registered through the framework's own context is unregistered when the framework stops;
//   - a framework that is dropped without being stopped calls no Stop; its activators are destroyed, and see by then
//     that their contexts, and all copies of those, are no longer valid;
//   - "service.scope" is "singleton" unless a registration says otherwise, and nothing heeds it;
//   - a filter (LDAPFilter.h) may be nested 200 deep, and compares texts, lists of texts, bools and numbers; a value of
//     another type only counts as present;
//   - references are always listed by ranking, without an interface id too.
#pragma once

#define US_ABI_EXPORT __attribute__((visibility("default")))
#define US_ABI_LOCAL __attribute__((visibility("hidden")))
#define US_Framework_EXPORT US_ABI_EXPORT

#define US_STR_(x) #x
#define US_STR(x) US_STR_(x)

namespace cppmicroservices {
/// Everything is in here, so that no symbol of it is one of CppMicroServices: both may be in one process. The tag puts
/// the name into the symbols of functions that return one of the types, too; a program that was compiled with the
/// headers of the one and is linked with a library that uses the other is refused by the linker.
inline namespace project_metadata __attribute__((abi_tag("project_metadata"))) {}
}  // namespace cppmicroservices
