/// What is meant by the names that commands give to their arguments and to the values of options: what shells offer in
/// their place while a command line is typed.
///
/// All functions may be called from any thread.
#pragma once

#include <map>
#include <string>
#include <string_view>

namespace cli {

enum class Meaning {
    text,  ///< anything else
    file,  ///< a file, or a folder that may stand for one
    folder,
    path,        ///< a path of the project, or an address
    key,         ///< of an attribute of the node at the path that is given before
    assignment,  ///< such a key, "=" and a value
    condition,   ///< a key of nodes from that path down, and what its value is to be like
    store        ///< the name of a kind of store
};

/// @param name such as "PATH"
inline Meaning meaningOf(std::string_view name) {
    static const std::map<std::string, Meaning, std::less<>> meanings{{"A", Meaning::file},
                                                                      {"B", Meaning::file},
                                                                      {"BASE", Meaning::file},
                                                                      {"BUNDLE", Meaning::file},
                                                                      {"FILE", Meaning::file},
                                                                      {"FOLDER", Meaning::folder},
                                                                      {"KEY", Meaning::key},
                                                                      {"KEY=VALUE", Meaning::assignment},
                                                                      {"KEY[=GLOB]", Meaning::condition},
                                                                      {"NEW-PATH", Meaning::path},
                                                                      {"OURS", Meaning::file},
                                                                      {"PATH", Meaning::path},
                                                                      {"ROOT", Meaning::folder},
                                                                      {"STORE", Meaning::store},
                                                                      {"THEIRS", Meaning::file}};
    const auto meaning = meanings.find(name);
    return meaning == meanings.end() ? Meaning::text : meaning->second;
}

}  // namespace cli
