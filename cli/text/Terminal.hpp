/// Colours on the standard output. Main thread only.
#pragma once

#include <string>

namespace cli {

/// The values are the parameters of the control function SGR (ECMA-48).
enum class Style { bold = 1, dim = 2, red = 31, green = 32, yellow = 33, cyan = 36 };

/// Whether the standard output is coloured: as --color says; by default if it is a terminal that can, and the
/// environment does not ask for NO_COLOR (https://no-color.org).
bool isColored();

/// `text`, which is safe to show, in `style` if the output is coloured.
std::string paint(Style style, const std::string& text);

}  // namespace cli
