// SPDX-License-Identifier: Apache-2.0
#include "host/service/Metrics.h"

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <malloc.h>
#include <system_error>

#include "host/fork/ForkedTask.h"

namespace Host {

namespace {

class Text {
 public:
  void add(char const* name, char const* type, char const* help, double value) {
    head(name, type, help);
    sample(name, "", value);
  }
  void head(char const* name, char const* type, char const* help) {
    text_ += std::string("# HELP macrewrite_") + name + ' ' + help + "\n# TYPE macrewrite_" + name +
             ' ' + type + '\n';
  }
  void sample(std::string const& name, std::string const& labels, double value) {
    char number[40];
    std::snprintf(number, sizeof number, " %.17g\n", value);
    text_ += "macrewrite_" + name + labels + number;
  }
  std::string const& text() const { return text_; }

 private:
  std::string text_;
};

double as(size_t count) {
  return static_cast<double>(count);
}

void addRows(Text& text, Service& service) {
  Switch& host = service.host();
  Reconciler const* const rows = host.reconciler();
  if (rows == nullptr) return;
  text.add("rows_wanted", "gauge", "Rows that the agent wants.", as(rows->wanted()));
  text.add("rows_installed", "gauge", "Rows that the table holds.", as(rows->installed()));
  text.add("rows_waiting", "gauge", "Rows that wait for room.", as(rows->waitingForRoom()));
  text.add("rows_failed", "gauge", "Writes and removals that failed and are tried again.",
           as(rows->failed()));
  if (auto const hits = service.hits()) {
    text.add("hits_total", "counter", "Packets that matched a row.", as(hits->matched));
    text.add("misses_total", "counter", "Packets that matched none.", as(hits->notMatched));
  }
}

void addLatency(Text& text, Latency const& latency) {
  text.head("event_to_table_seconds", "histogram",
            "Time from an event to its changes of the table.");
  Kiv::U64 below = 0;
  for (size_t i = 0; i < Latency::kBounds.size(); ++i) {
    below += latency.at(i);
    char bound[40];
    std::snprintf(bound, sizeof bound, "{le=\"%g\"}", Latency::kBounds[i]);
    text.sample("event_to_table_seconds_bucket", bound, as(below));
  }
  text.sample("event_to_table_seconds_bucket", "{le=\"+Inf\"}", as(latency.count()));
  text.sample("event_to_table_seconds_sum", "", latency.sum());
  text.sample("event_to_table_seconds_count", "", as(latency.count()));
}

}  // namespace

std::string metricsText(Service& service, size_t auditFindings) {
  Text text;
  text.add("ready", "gauge", "1 when the agent is up, in sync and connected to its store.",
           service.ready() ? 1 : 0);
  text.head("state", "gauge", "1 for the state that the agent is in.");
  using State = Service::State;
  for (State const state :
       {State::Reading, State::Waiting, State::Paused, State::Held, State::Running}) {
    text.sample("state", std::string("{state=\"") + name(state) + "\"}",
                service.state() == state ? 1 : 0);
  }
  addRows(text, service);
  text.add("audit_findings", "gauge", "Rows that the last audit found not as they are wanted.",
           as(auditFindings));
  text.add("table_writes_total", "counter", "Writes and removals that the table was asked for.",
           as(service.chipChanges()));
  StoreMirror::Status const& store = service.mirror().status();
  text.add("store_connected", "gauge", "1 when the state store is followed.",
           service.mirror().current() ? 1 : 0);
  text.add("store_changes_total", "counter", "Changes of the store that were applied.",
           as(store.applied));
  text.add("store_resyncs_total", "counter", "Snapshots of the store that were taken.",
           as(store.resyncs));
  text.add("store_unreadable", "gauge", "Entries of the store that cannot be read.",
           as(service.mirror().unreadable().size()));
  text.add("store_lag_seconds", "gauge", "Seconds since the store was lost; 0 while connected.",
           service.mirror().current() ? 0 : service.host().clock->now() - store.since);
  text.add("port_errors", "gauge", "Ports that cannot be set.", as(service.portErrors().size()));
  text.add("deaths_total", "counter", "Deaths of earlier processes of this service.",
           as(service.deaths().count()));
  if (auto const& death = service.deaths().last()) {
    text.add("seconds_since_death", "gauge", "Seconds since the last death.",
             static_cast<double>(std::time(nullptr)) - death->time);
  }
  text.add("uptime_seconds", "gauge", "Seconds since the service began.", service.uptime());
  ForkedTask::Forks const& forks = ForkedTask::forks();
  text.add("forks_total", "counter", "Large answers, each made in a process of its own.",
           as(forks.count));
  text.add("fork_seconds_total", "counter", "Time that the service waited for these to be forked.",
           forks.seconds);
  struct mallinfo2 const heap = ::mallinfo2();
  text.add("heap_bytes", "gauge", "Memory that the service has taken and uses.",
           as(heap.uordblks + heap.hblkhd));
  addLatency(text, service.latency());
  return text.text();
}

void writeMetrics(Service& service, std::filesystem::path const& file, size_t auditFindings) {
  std::filesystem::path const part = file.string() + ".new";
  {
    std::ofstream out(part);
    out << metricsText(service, auditFindings);
    if (!out.flush()) throw std::system_error(errno, std::generic_category(), part.string());
  }
  std::filesystem::rename(part, file);
}

}  // namespace Host
