#include "sim/devices/Supplicant.h"

#include <map>
#include <utility>

namespace sim {

Supplicant::Supplicant(Journal& eventJournal, WlanAdapter& wlanAdapter, Programs& programs)
    : journal(eventJournal), adapter(wlanAdapter) {
    programs.answer("wpa_supplicant", [this](const Words& question) { return answer(question); });
}

void Supplicant::onCommand(const std::string& begin, std::vector<std::string> steps, int times) {
    const std::lock_guard<std::mutex> held(mutex);
    rules.push_back({begin, std::move(steps), times});
}

void Supplicant::clear() {
    const std::lock_guard<std::mutex> held(mutex);
    rules.clear();
}

Words Supplicant::answer(const Words& question) {
    const std::string& what = question[0];
    if (what == "command" && question.size() == 2) {
        journal.note("wpa_supplicant", question[1]);
        return stepsFor(question[1]);
    }
    if (what == "interface" && question.size() == 2)
        return {question[1] == adapter.name() && adapter.isPresent() ? "yes" : "no"};
    if (what == "essid")
        return {adapter.essid()};
    if (what == "leave")
        adapter.leave();
    if (what == "join") {
        std::map<std::string, std::string> parameters;
        for (size_t i = 1; i + 1 < question.size(); i += 2)
            parameters[question[i]] = question[i + 1];
        adapter.join(parameters);
    }
    return {""};
}

Words Supplicant::stepsFor(const std::string& command) {
    const std::lock_guard<std::mutex> held(mutex);
    for (Rule& rule : rules) {
        if (rule.times <= 0 || command.compare(0, rule.begin.size(), rule.begin) != 0)
            continue;
        --rule.times;
        return rule.steps.empty() ? Words{""} : rule.steps;
    }
    return {"obey"};
}

}  // namespace sim
