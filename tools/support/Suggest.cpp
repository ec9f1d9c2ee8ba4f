#include "tools/support/Suggest.h"

#include "tools/support/Text.h"

#include <algorithm>
#include <numeric>
#include <utility>
#include <vector>

namespace Quorva::Tool {

namespace {

/// Letters to insert, remove or replace to get from one text to the other.
size_t Distance(std::string_view from, std::string_view to)
{
    std::vector<size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 0; i < from.size(); ++i) {
        size_t diagonal = std::exchange(row[0], i + 1);
        for (size_t j = 0; j < to.size(); ++j) {
            const size_t replaced = diagonal + (from[i] != to[j]);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, diagonal + 1, row[j] + 1});
        }
    }
    return row.back();
}

}  // namespace

std::string NearestName(std::string_view name, std::span<const std::string> candidates)
{
    std::string nearest;
    size_t best = std::max<size_t>(1, name.size() / 3) + 1;
    if (name.size() > 64)
        return nearest;  // not a slip of the pen, and the search would take its time
    for (const std::string& candidate : candidates)
        if (const size_t distance = Distance(name, candidate); distance < best && distance < name.size()) {
            best = distance;
            nearest = candidate;
        }
    return nearest;
}

std::string DidYouMean(std::string_view name, std::span<const std::string> candidates)
{
    std::string nearest = NearestName(name, candidates);
    if (nearest.empty() && name.size() > name.find_first_not_of('-') + 1)  // the beginning of just one?
        for (const std::string& candidate : candidates)
            if (candidate.starts_with(name)) {
                if (!nearest.empty())
                    return {};
                nearest = candidate;
            }
    return nearest.empty() ? nearest : "; did you mean '" + Printable(nearest) + "'?";
}

}  // namespace Quorva::Tool
