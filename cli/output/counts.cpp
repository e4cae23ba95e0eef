#include "cli/output/counts.h"

namespace cli {

std::string countsText(const std::vector<Count>& counts) {
    std::string text;
    for (const Count& count : counts) {
        if (count.number > 0)
            text += (text.empty() ? "" : ", ") + std::to_string(count.number) + " " + count.label;
    }
    return text.empty() ? "none" : text;
}

} // namespace cli
