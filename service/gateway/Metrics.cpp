#include "service/gateway/Metrics.h"

#include <cstdio>

namespace nulo::service {

void Metrics::add(const std::string& name, const std::string& labels, double amount) {
    const std::scoped_lock lock(m_mutex);
    m_families[name].values[labels] += amount;
}

std::string Metrics::text() const {
    const std::scoped_lock lock(m_mutex);
    std::string text;
    for (const auto& [name, family] : m_families) {
        text += "# TYPE " + name + (family.isGauge ? " gauge\n" : " counter\n");
        for (const auto& [labels, value] : family.values) {
            char number[40];
            std::snprintf(number, sizeof number, "%.17g", value);
            text += name;
            if (!labels.empty())
                text += "{" + labels + "}";
            text += std::string(" ") + number + "\n";
        }
    }
    return text;
}

Metrics::InFlight::InFlight(Metrics& metrics, const std::string& name)
    : m_metrics(metrics), m_name(name) {
    const std::scoped_lock lock(metrics.m_mutex);
    Family& family = metrics.m_families[name];
    family.isGauge = true;
    ++family.values[""];
}

Metrics::InFlight::~InFlight() {
    m_metrics.add(m_name, "", -1);
}

}  // namespace nulo::service
