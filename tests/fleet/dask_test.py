"""scripts/fleet-dask on a local cluster of 2 workers over a small generated fleet: the merged
database holds the same rows as one machine's `fleet ingest` of the same reports (ids, paths and
ingest times aside), the plan's counts, and a second run sends nothing.

    dask_test.py --sim build/default/out/remedium-sim --work DIR

Exit 77 (ctest: skipped) without python3-distributed.
"""

import argparse
import collections
import json
import os
import shutil
import subprocess
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
PARENT = {"boots": ("report_id", "reports"), "processes": ("boot_id", "boots"), "cameras": ("process_id", "processes"),
          "events": ("camera_id", "cameras"), "notes": ("camera_id", "cameras"),
          "recorded_state": ("boot_id", "boots"), "reading_notes": ("report_id", "reports")}


def run(*command):
    result = subprocess.run(command, capture_output=True, text=True, check=False)
    if result.returncode != 0:
        sys.exit(f"dask_test: {' '.join(command)} failed ({result.returncode}):\n{result.stdout}{result.stderr}")
    return result.stdout


def normalised(sim, db):
    """The export's rows with each id replaced by its report's hash and its rank there."""
    key = collections.defaultdict(dict)
    rank = collections.Counter()
    rows = collections.Counter()
    for line in run(sim, "fleet", "export", "--db", db, "--jsonl").splitlines():
        row = json.loads(line)
        table = row["table"]
        if table == "files":
            continue
        if table == "reports":
            self = row["hash"]
            del row["path"], row["ingested_at"]
        else:
            column, parent = PARENT[table]
            owner = key[parent][row[column]]
            self = f"{owner}/{table}{rank[table, owner]}"
            rank[table, owner] += 1
            row[column] = owner
        if "id" in row:
            key[table][row["id"]] = self
            row["id"] = self
        rows[json.dumps(row, sort_keys=True)] += 1
    return rows


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--sim", required=True)
    parser.add_argument("--work", required=True)
    args = parser.parse_args()
    try:
        import distributed  # noqa: F401
    except ImportError:
        print("skipped: python3-distributed not installed (scripts/setup installs it)")
        sys.exit(77)

    shutil.rmtree(args.work, ignore_errors=True)
    reports = os.path.join(args.work, "reports")
    run(sys.executable, os.path.join(ROOT, "scripts/fleet-generate"), reports, "--reports", "24", "--lines", "300",
        "--rejected", "2", "--seed", "7", "--jobs", "2", "--sim", args.sim)
    single, spread = os.path.join(args.work, "single.sqlite"), os.path.join(args.work, "dask.sqlite")
    one = run(args.sim, "fleet", "ingest", "--db", single, "--progress", "off", reports)
    assert one == "26 reports: 24 ingested, 0 already in the database, 2 rejected\n", one

    dask = [sys.executable, os.path.join(ROOT, "scripts/fleet-dask"), "--db", spread, "--local", "2", "--chunk", "5",
            "--sim", args.sim, reports]
    first = run(*dask)
    assert first.endswith("26 reports: 24 ingested, 0 already in the database, 2 rejected\n"), first
    a, b = normalised(args.sim, single), normalised(args.sim, spread)
    assert a == b, f"the databases differ: {len(a - b)} rows only in one ingest, {len(b - a)} only in the merge"
    # And so the same summary, group by group.
    for by in ("build", "module"):
        summaries = [run(args.sim, "fleet", "summary", "--db", db, "--by", by, "--json") for db in (single, spread)]
        first_summary, second_summary = (json.loads(text) for text in summaries)
        for summary in (first_summary, second_summary):
            summary.pop("database", None)
        assert first_summary == second_summary, f"the summaries by {by} differ"

    # The plan's counts: build B's reports and its bypasses.
    import sqlite3
    plan = json.load(open(os.path.join(reports, "plan.json"), encoding="utf-8"))
    with sqlite3.connect(spread) as db:
        for build, entry in plan["builds"].items():
            got = db.execute("SELECT COUNT(DISTINCT r.id), SUM(c.bypass_taken) FROM reports r JOIN boots b ON "
                             "b.report_id = r.id JOIN processes p ON p.boot_id = b.id JOIN cameras c ON "
                             "c.process_id = p.id WHERE r.build = ?", (build,)).fetchone()
            assert got == (entry["reports"], entry["flags"]["bypass_taken"]), (build, got, entry)

    again = run(*dask)
    assert again.endswith("26 reports: 0 ingested, 26 already in the database, 0 rejected\n"), again
    print(f"fleet-dask over 2 workers: {sum(b.values())} rows, as one machine's ingest")


if __name__ == "__main__":
    main()
