#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Kill matrix: for each fault of the given samples of ../shared/mutants.py (seed:count), which
test cases of the family's program fail. A test that is the only one failing for some fault
carries weight; one that fails for none of two samples is a candidate for a cut. The faults and
their order are the ones mutants.py draws over src and platform/linux with the same seed.

Usage, from the project root, with a configured Ninja build of the default preset:
    scripts/kill-matrix.py --out matrix.json 3:200 17:100
    scripts/kill-matrix.py --out time.json --only time 3:200 17:100
    scripts/kill-matrix.py --report matrix.json [family ...]   per test: caught, caught alone
"""
import argparse, json, os, random, re, subprocess, sys, tempfile, time
sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "shared"))
import mutants as M


def report(path, families):
    """Per test case: the faults it caught, those it alone caught, then the survivors."""
    results = json.load(open(path))
    kills, alone = {}, {}
    for r in results:
        if families and r["fam"] not in families or r["verdict"] not in ("caught", "timeout"):
            continue
        for test in r["failed"]:
            kills.setdefault(test, []).append(r["where"])
        if len(r["failed"]) == 1:
            alone.setdefault(r["failed"][0], []).append(f'{r["where"]} {r["desc"]}')
    for test in sorted(kills, key=lambda t: -len(kills[t])):
        print(f"{len(kills[test]):3} caught, {len(alone.get(test, [])):2} alone  {test}")
        for fault in alone.get(test, []):
            print("        alone:", fault)
    for r in results:
        if (not families or r["fam"] in families) and r["verdict"] == "SURVIVED":
            print("survived:", r["where"], r["desc"], r["seeds"])


if len(sys.argv) > 2 and sys.argv[1] == "--report":
    report(sys.argv[2], set(sys.argv[3:]))
    sys.exit(0)

ap = argparse.ArgumentParser()
ap.add_argument("--build", default="build/default")
ap.add_argument("--out", required=True, help="the matrix as JSON, rewritten after every fault")
ap.add_argument("--only", default="", help="only these families, comma-separated")
ap.add_argument("--where", default="", help="only faults at these file:line, comma-separated")
ap.add_argument("--start", type=int, default=1, help="resume at fault number N")
ap.add_argument("samples", nargs="+")
a = ap.parse_args()

files = []
for p in ["src", "platform/linux"]:
    for root, _, names in os.walk(p):
        files += [os.path.join(root, x) for x in names if x.endswith(".cpp")]
files = sorted(f for f in files if M.family_of(os.path.normpath(f)))
all_sites = []
for f in files:
    _, sites = M.candidate_sites(f)
    all_sites += [(f,) + s for s in sites]
plan = {}
for sample in a.samples:
    seed, n = map(int, sample.split(":"))
    for s in sorted(random.Random(seed).sample(all_sites, n)):
        plan.setdefault(s, []).append(seed)
only = set(x for x in a.only.split(",") if x)
items = sorted(plan.items())
if only:
    items = [it for it in items if M.family_of(it[0][0]) in only]
if a.where:
    keep = set(a.where.split(","))
    items = [it for it in items if f"{it[0][0]}:{it[0][1] + 1}" in keep]
print(f"{len(items)} faults", flush=True)
rc, out = M.run(["cmake", "--build", a.build], 1800)
if rc != 0:
    sys.exit(out[-3000:])
def runQuiet(cmd, timeout):
    """Like mutants.run, but the output (any bytes) is not kept."""
    import signal
    p = subprocess.Popen(cmd, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, start_new_session=True)
    try:
        return p.wait(timeout=timeout)
    except subprocess.TimeoutExpired:
        return None
    finally:
        try:
            os.killpg(p.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        p.wait()

results = []
for i, ((path, no, s, e, k), seeds) in enumerate(items, 1):
    pat, rep, desc = M.OPERATORS[k]
    if i < a.start:
        continue
    text = open(path, encoding="utf-8").read()
    lines = text.split("\n")
    line = lines[no]
    lines[no] = line[:s] + re.sub(pat, rep, line[s:e], count=1) + line[e:]
    try:
        open(path, "w", encoding="utf-8").write("\n".join(lines))
        fam = M.family_of(path)
        build = ["cmake", "--build", a.build] + ([] if fam == "platform" else ["--target", "platform_utils"])
        rc, out = M.run(build, 600)
        where = f"{path}:{no + 1}"
        if rc != 0:
            verdict, failed = "stillborn", []
        else:
            j = tempfile.mktemp(suffix=".json")
            rc = runQuiet([f"{a.build}/tests/test_{fam}", "--gtest_filter=-Slow*", f"--gtest_output=json:{j}"], 60)
            failed = []
            if rc is None:
                verdict = "timeout"
            else:
                verdict = "caught" if rc != 0 else "SURVIVED"
                try:
                    d = json.load(open(j))
                    for suite in d["testsuites"]:
                        for t in suite["testsuite"]:
                            if t.get("failures") or t.get("result") not in ("COMPLETED", None):
                                failed.append(f"{suite['name']}.{t['name']}")
                    os.unlink(j)
                except Exception:
                    if rc != 0:
                        failed = ["<crash>"]
        print(f"[{i}/{len(items)}] {where} {desc} {seeds}: {verdict} {' '.join(failed[:6])}", flush=True)
        results.append(dict(where=where, desc=desc, seeds=seeds, fam=fam, verdict=verdict, failed=failed, src=line.strip()))
        json.dump(results, open(a.out, "w"), indent=1)
    finally:
        open(path, "w", encoding="utf-8").write(text)
json.dump(results, open(a.out, "w"), indent=1)
M.run(["cmake", "--build", a.build], 1800)
