#!/usr/bin/env python3
"""Coverage per test case: which lines and branches each CTest case runs.

  scripts/casecoverage.py run              run every case of the coverage preset
                                           alone, its counters under a folder of its own
                                           (CASES=regex: only the cases it matches)
  scripts/casecoverage.py alone            the cases that run no line or branch that
                                           another case does not run too
  scripts/casecoverage.py without CASE...  what the whole suite would no longer run
                                           without these cases (Suite.Name, or Suite.)

Coverage of the whole suite says what is run; this says who runs it, so that a
case can be judged before it is dropped or folded. Lines and branches of src/,
tech/ and tools/ count; branches of thrown exceptions do not. Run it after
`scripts/coverage.sh` has built the coverage preset.
"""
import collections
import json
import os
import pickle
import queue
import re
import subprocess
import sys
import threading

ROOT = os.path.abspath(os.path.join(os.path.dirname(__file__), '..'))
BUILD = os.path.join(ROOT, 'build', 'coverage')
RUNS = os.path.join(BUILD, 'casecoverage')
FOLDERS = tuple(os.path.join(ROOT, f) + '/' for f in ('src', 'tech', 'tools'))


def list_cases():
    shown = subprocess.run(['ctest', '--preset', 'coverage', '--show-only=json-v1'], cwd=ROOT,
                           capture_output=True, text=True, check=True).stdout
    cases = json.loads(shown)['tests']
    if os.environ.get('CASES'):
        cases = [c for c in cases if re.search(os.environ['CASES'], c['name'])]
    for case in cases:
        case['props'] = {p['name']: p['value'] for p in case.get('properties', [])}
    return cases


def run_all(jobs=2):
    """Runs each case with GCOV_PREFIX set, so that its counters land apart."""
    cases = list_cases()
    os.makedirs(RUNS, exist_ok=True)
    locked = [i for i, c in enumerate(cases) if 'RESOURCE_LOCK' in c['props'] and not c['props'].get('RUN_SERIAL')]
    serial = [i for i, c in enumerate(cases) if c['props'].get('RUN_SERIAL')]
    free = queue.Queue()
    for i, c in enumerate(cases):
        if i not in locked and i not in serial:
            free.put(i)
    names, failed, lock = {}, [], threading.Lock()

    def run(i):
        case = cases[i]
        env = dict(os.environ, GCOV_PREFIX=os.path.join(RUNS, str(i)), GCOV_PREFIX_STRIP='0')
        for entry in case['props'].get('ENVIRONMENT', []):
            key, value = entry.split('=', 1)
            env[key] = value
        try:
            done = subprocess.run(case['command'], cwd=case['props'].get('WORKING_DIRECTORY'), env=env,
                                  stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=600)
            code = done.returncode
        except subprocess.TimeoutExpired:
            code = 'timeout'
        with lock:
            names[i] = case['name']
            if code != 0 and not case['props'].get('WILL_FAIL'):
                failed.append(f"{case['name']}: {code}")
            if sys.stderr.isatty():
                print(f'\r{len(names)}/{len(cases)} cases', end='', file=sys.stderr, flush=True)

    def worker(first):
        for i in first:
            run(i)
        while True:
            try:
                run(free.get_nowait())
            except queue.Empty:
                return

    threads = [threading.Thread(target=worker, args=(locked if n == 0 else [],)) for n in range(jobs)]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    for i in serial:
        run(i)
    if sys.stderr.isatty():
        print(file=sys.stderr)
    json.dump(names, open(os.path.join(RUNS, 'cases.json'), 'w'))
    for line in failed:
        print('exit code not 0 (some cases expect it):', line)


def counters(i):
    """The (file, line) and (file, line, branch) a case ran, from gcov's JSON."""
    base = os.path.join(RUNS, str(i))
    cache = base + '.pickle'
    if os.path.exists(cache):
        return pickle.load(open(cache, 'rb'))
    data = []
    for folder, _, files in os.walk(base):
        for name in files:
            if name.endswith('.gcda'):
                path = os.path.join(folder, name)
                notes = path[len(base):-5] + '.gcno'
                link = path[:-5] + '.gcno'
                if os.path.exists(notes) and not os.path.lexists(link):
                    os.symlink(notes, link)
                data.append(path)
    lines, branches = set(), set()
    for k in range(0, len(data), 40):
        out = subprocess.run(['gcov', '--json-format', '--stdout', '-b'] + data[k:k + 40], cwd=BUILD,
                             capture_output=True, text=True).stdout
        for row in out.splitlines():
            if not row.startswith('{'):
                continue
            report = json.loads(row)
            for source in report['files']:
                name = os.path.normpath(os.path.join(report.get('current_working_directory', ''), source['file']))
                if not name.startswith(FOLDERS):
                    continue
                name = os.path.relpath(name, ROOT)
                for line in source['lines']:
                    if line['count'] > 0:
                        lines.add((name, line['line_number']))
                    taken = [b for b in line['branches'] if not b.get('throw')]
                    for index, branch in enumerate(taken):
                        if branch['count'] > 0:
                            branches.add((name, line['line_number'], index))
    pickle.dump((lines, branches), open(cache, 'wb'))
    return lines, branches


def load():
    names = json.load(open(os.path.join(RUNS, 'cases.json')))
    by_case = collections.defaultdict(lambda: (set(), set()))
    for i, name in names.items():
        # A parameterised case counts as its test: Prefix/Suite.Name/3 -> Suite.Name.
        parts = [p for p in name.split('/') if '.' in p]
        key = parts[0] if parts else name
        lines, branches = counters(int(i))
        by_case[key][0].update(lines)
        by_case[key][1].update(branches)
    return by_case


def folder(path):
    return '/'.join(path.split('/')[:2])


def alone(by_case):
    lines = collections.Counter(x for c in by_case.values() for x in c[0])
    branches = collections.Counter(x for c in by_case.values() for x in c[1])
    for name in sorted(by_case):
        own_lines = sum(1 for x in by_case[name][0] if lines[x] == 1)
        own_branches = sum(1 for x in by_case[name][1] if branches[x] == 1)
        if own_lines == 0 and own_branches == 0:
            print(name)


def without(by_case, dropped):
    def gone(name):
        return any(name == d or (d.endswith('.') and name.startswith(d)) for d in dropped)
    kept = [c for n, c in by_case.items() if not gone(n)]
    everything = [set().union(*(c[k] for c in by_case.values())) for k in (0, 1)]
    still = [set().union(*(c[k] for c in kept)) for k in (0, 1)]
    lost = collections.defaultdict(lambda: [0, 0])
    for k in (0, 1):
        for x in everything[k] - still[k]:
            lost[folder(x[0])][k] += 1
    if not lost:
        print('nothing: every line and branch is run by another case')
    for name, (lines, branches) in sorted(lost.items()):
        print(f'{name:<16} {lines:>4} lines {branches:>4} branches no longer run')


def main():
    if len(sys.argv) < 2 or sys.argv[1] not in ('run', 'alone', 'without'):
        print(__doc__.strip(), file=sys.stderr)
        return 2
    if sys.argv[1] == 'run':
        run_all(int(os.environ.get('JOBS', '2')))
    elif sys.argv[1] == 'alone':
        alone(load())
    else:
        without(load(), sys.argv[2:])
    return 0


if __name__ == '__main__':
    sys.exit(main())
