#pragma once

#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

/// What the simulated terminal tells the launcher's front panel: items, each with a name, a level
/// and a text, as one message of a line an item. For these two alone.
namespace launcher {

struct PanelItem {
    enum Kind : char {
        Title = 't',
        Lamp = 'l',  ///< lit unless its level is 0
        Bar = 'b',   ///< a level of 0 to 100, and a text
        Text = 'x'
    };

    Kind kind;
    std::string name;
    int level = 0;
    std::string text;
};

constexpr size_t LongestPanelMessage = 8192;

inline std::string toMessage(const std::vector<PanelItem>& items) {
    std::string message;
    for (const PanelItem& item : items)
        message += std::string(1, item.kind) + '\t' + item.name + '\t' +
                   std::to_string(item.level) + '\t' + item.text + '\n';
    return message.substr(0, LongestPanelMessage);
}

inline std::vector<PanelItem> fromMessage(std::string_view message) {
    std::vector<PanelItem> items;
    const auto take = [&message](char end) {
        std::string part(message.substr(0, message.find(end)));
        message.remove_prefix(part.size() < message.size() ? part.size() + 1 : part.size());
        return part;
    };
    while (!message.empty()) {
        PanelItem item{};
        const std::string kind = take('\t');
        item.kind = kind.empty() ? PanelItem::Text : static_cast<PanelItem::Kind>(kind[0]);
        item.name = take('\t');
        item.level = atoi(take('\t').c_str());
        item.text = take('\n');
        items.push_back(item);
    }
    return items;
}

}  // namespace launcher
