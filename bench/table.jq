# Prints one section of the table from the medians of a Google Benchmark run. Each case has the time
# of runenv and the times of the others as multiples of it. If a case has the processor time of its
# server (`server_ns`), it gets a second row. Arguments: $title.

def rounded: if . < 10 then (. * 100 | round / 100) elif . < 100 then (. * 10 | round / 10) else round end;
def time:
  if . < 1e3 then "\(rounded) ns" elif . < 1e6 then "\(. / 1e3 | rounded) µs"
  elif . < 1e9 then "\(. / 1e6 | rounded) ms" else "\(. / 1e9 | rounded) s" end;
def nanoseconds: .real_time * {ns: 1, us: 1e3, ms: 1e6, s: 1e9}[.time_unit];

# The name of a run consists of the case, the contender and what Google Benchmark adds.
def split_name:
  gsub("/(real_time|manual_time|process_time|(iterations|repeats|threads):[0-9]+)"; "")
  | capture("^(?<case>.*)/(?<who>[^/]*)$");

# A row with one quantity of all contenders of a case, or nothing if runenv does not have it.
def row($name; quantity; shown):
  (.[] | select(.who == "runenv") | quantity | values) as $ours
  | [.[] | select(.who != "runenv") | "\(.who) \(quantity / $ours | rounded)"]
  | "| \($name) | \($ours | shown) | \(join(", ")) |";

[.benchmarks | sort_by(.family_index, .per_family_instance_index)[]
 | select(.aggregate_name == "median")
 | (.run_name | split_name) + {time: nanoseconds, server_ns}]
| reduce .[] as $run ({}; .[$run.case] += [$run])
| to_entries
| "### \($title)\n\n| case | runenv | others, times as much |\n|---|---|---|",
  (.[] | .key as $case | .value
   | row($case; .time; time), row("– processor time of the server"; .server_ns; time))
