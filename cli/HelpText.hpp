/// What --help of the program and the manual page say besides the commands and their options.
#pragma once

#include <vector>

namespace cli {

struct HelpSection {
    const char* title;
    std::vector<const char*> lines;  ///< each a sentence or an example of its own
};

constexpr const char* statusText =
    "Exit status: 0 done, 1 found differences or problems, 2 wrong usage, 3 an error, "
    "4 not a project, 130 interrupted.";

inline const std::vector<HelpSection>& helpSections() {
    static const std::vector<HelpSection> sections{
        {"PATH",
         {"The steps joined by |, each as type, : and location, as in Folder:src|File:main.c; / is the root path.",
          "#NAME goes on into the node, and #NAME[2] to the second child node of that name, as in "
          "File:main.c#Review[2].",
          "A backslash stands before | : # [ and itself where they mean nothing; \\t \\n \\r \\xNN \\uNNNN "
          "\\UNNNNNNNN are characters. JSON does as well: [[\"Folder\",\"src\"],[\"File\",\"main.c\"]]."}},
        {"GLOB",
         {"* is any text, ? one character, [a-z] one of a range, [!a-z] one of all others; after a backslash a "
          "character stands for itself."}},
        {"Environment",
         {"PROJECT_METADATA_SETTINGS names the settings file.",
          "PROJECT_METADATA_PREFIX names a prefix in which plug-ins are looked for.",
          "PROJECT_METADATA_LOG, if it is set, lets all records of the log come as they are made.",
          "NO_COLOR, if it is set, means --color never, unless that is given.",
          "XDG_CONFIG_HOME and XDG_STATE_HOME say where settings and what scans remember are kept."}},
        {"Files",
         {"resources/project/Project.xml in the root folder, or that file in another metadata folder, is the core file "
          "of a project.",
          "~/.config/project-metadata/settings.ini holds the settings; \"project-metadata settings\" checks it.",
          "~/.local/state/project-metadata/scans is what scans remember."}},
        {"Examples",
         {"project-metadata init --store sqlite", "project-metadata scan",
          "project-metadata set 'Folder:src|File:main.c' Owner=Ann 'Notes@notes.txt'",
          "project-metadata find --attribute Owner=Ann --or --not --attribute Owner",
          "project-metadata diff old-project . --stat"}},
    };
    return sections;
}

}  // namespace cli
