#pragma once

#include <map>
#include <mutex>
#include <string>

namespace nulo::service {

/// Counters and gauges in the text format of Prometheus. Any thread. Nothing in them depends on
/// what clients send.
class Metrics {
  public:
    /// Counts one, or `amount`: add("nulo_requests_total", "path=\"/api/chat\",status=\"200\"").
    void add(const std::string& name, const std::string& labels, double amount = 1);
    std::string text() const;

    /// Counts itself as long as it lives.
    class InFlight {
      public:
        explicit InFlight(Metrics& metrics, const std::string& name);
        ~InFlight();
        InFlight(const InFlight&) = delete;
        InFlight& operator=(const InFlight&) = delete;

      private:
        Metrics& m_metrics;
        const std::string m_name;
    };

  private:
    struct Family {
        bool isGauge = false;
        std::map<std::string, double> values;  // by labels
    };

    mutable std::mutex m_mutex;
    std::map<std::string, Family> m_families;  // m_mutex
};

}  // namespace nulo::service
