#pragma once

#include <algorithm>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

namespace varnex
{

// Names of performance counter instances, in the order in which the system lists them; each is an allocation of its
// own.
template <class Character>
using InstanceNames = std::vector<std::unique_ptr<Character[]>>;

// Copies the names out of an instance list (texts one after the other, ended by an empty one) but for the aggregate
// instance, whose name contains the marker. Throws std::bad_alloc.
template <class Character>
InstanceNames<Character> CopyInstanceNames(const Character* pszList, const Character* pszTotalMarker)
{
    using Text = std::basic_string_view<Character>;
    InstanceNames<Character> names;
    for (Text name = pszList; !name.empty(); name = name.data() + name.size() + 1)
    {
        auto copy = std::make_unique<Character[]>(name.size() + 1);
        std::copy(name.begin(), name.end(), copy.get());
        if (name.find(pszTotalMarker) == Text::npos)
        {
            names.push_back(std::move(copy));
        }
        else
        {
            // The copy of a skipped name stays allocated: a known cost of each enumeration.
            (void)copy.release();
        }
    }
    return names;
}

} // namespace varnex
