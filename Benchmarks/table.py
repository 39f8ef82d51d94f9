"""Prints the results of all benchmark binaries beside their goals.

table.py GOALS RESULTS...: the goals, and one JSON file of Google Benchmark a binary. Exit status 1 when a benchmark
failed or a twin allocates more than its goal allows; ratios never fail, they depend on the machine.
"""

import json
import os
import sys

QUIET = (0.97, 1.03)
# Figures are compared as printed: two digits for a ratio, tenths of a nanosecond for a difference.
DIGITS = {"ratio": 2, "diff_ns": 1}


def load_rows(path):
    with open(path, encoding="utf-8") as file:
        rows = json.load(file)["benchmarks"]
    for row in rows:
        row["name"] = row["name"].split("/real_time")[0]
    return rows


def verdict(row, goal):
    if goal is None:
        return "no goal"
    value = round(row[goal["figure"]], DIGITS[goal["figure"]])
    if value <= goal["moonshot"]:
        return "moonshot"
    return "met" if value <= goal["must"] else "MISSED"


def print_line(columns):
    widths = (58, 10, 10, 8, 13, 6, 9, 14, 9)
    print("  ".join(text.ljust(width) if i == 0 else text.rjust(width)
                    for i, (text, width) in enumerate(zip(columns, widths))).rstrip())


def print_twin(row, goal, noisy):
    figure = goal["figure"] if goal else "ratio"
    digits = DIGITS[figure]
    value = round(row[figure], digits) + 0.0  # not "-0.0"
    shown = f"{value:+.1f} ns" if figure == "diff_ns" else f"{value:.2f}"
    spread = f"{row['ratio_q1']:.2f} - {row['ratio_q3']:.2f}"
    must, moonshot = (f"{goal[k]:.{digits}f}" for k in ("must", "moonshot")) if goal else ("", "")
    print_line((goal["what"] if goal else row["name"], f"{row['base_ns']:.1f}", f"{row['cand_ns']:.1f}", shown, spread,
                must, moonshot, verdict(row, goal) + (" (noisy)" if noisy else ""),
                f"{row['base_allocs']:.4g}/{row['cand_allocs']:.4g}"))


def main(goals_path, result_paths):
    with open(goals_path, encoding="utf-8") as file:
        goals = {goal["name"]: goal for goal in json.load(file)["twins"]}
    measured, faults, quiet_lines, told = set(), [], [], []
    print_line(("twin", "base ns", "ours ns", "result", "quartiles", "must", "moonshot", "verdict", "allocs"))
    for path in result_paths:
        binary = os.path.splitext(os.path.basename(path))[0]
        rows = load_rows(path)
        good = [row for row in rows if not row.get("error_occurred")]
        faults += [f"{binary}: {row['name']}: {row.get('error_message', '')}" for row in rows if row not in good]
        quiet = [row for row in good if row["name"].endswith("_quiet")]
        noisy = any(not QUIET[0] <= row["ratio"] <= QUIET[1] for row in quiet)
        quiet_lines += [f"{binary}: {row['name']} {row['ratio']:.3f}" for row in quiet]
        for row in good:
            if row in quiet:
                continue
            if "ratio" not in row:
                told.append(row["name"] + ": " + ", ".join(
                    f"{key} {value:.5g}" for key, value in row.items()
                    if isinstance(value, float) and key not in ("real_time", "cpu_time")))
                continue
            goal = goals.get(row["name"])
            measured.add(row["name"])
            print_twin(row, goal, noisy)
            if goal and row["cand_allocs"] > goal.get("allocs", float("inf")):
                faults.append(f"{binary}: {row['name']}: {row['cand_allocs']:.4g} allocations an operation, "
                              f"the goal is {goal['allocs']}")
    print(f"\nQuiet rows ({QUIET[0]} to {QUIET[1]}; outside, the machine was busy): " + ", ".join(quiet_lines))
    for line in told:
        print("Beside: " + line)
    missing = [goal["what"] for name, goal in goals.items() if name not in measured]
    if missing:
        print("Not measured: " + "; ".join(missing))
    for fault in faults:
        print("FAILED: " + fault)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1], sys.argv[2:]))
