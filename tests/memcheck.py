#!/usr/bin/env python3
"""Runs the small tests of the test programs under Valgrind's memcheck.

usage: memcheck.py LIBRARY_DIR PROGRAM...

A test is small if it takes less than 20 milliseconds without Valgrind. LIBRARY_DIR holds the library to be watched: one
that is bound to a level which Valgrind knows.
"""
import concurrent.futures
import json
import os
import subprocess
import sys
import tempfile

SMALL = 0.02  # seconds
# Sees which rows a thread writes by the faults on protected pages.
FAULTING = "TeamTakesStripes"
SUPPRESSIONS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "memcheck.supp")


def small_tests(program, environment):
    with tempfile.NamedTemporaryFile(suffix=".json") as report:
        subprocess.run([program, f"--gtest_output=json:{report.name}"], env=environment, check=True,
                       stdout=subprocess.DEVNULL)
        suites = json.load(open(report.name))["testsuites"]
    names = [f"{test['classname']}.{test['name']}" for suite in suites for test in suite["testsuite"]
             if float(test["time"].rstrip("s")) < SMALL and test["name"] != FAULTING]
    return names, sum(len(suite["testsuite"]) for suite in suites)


def check(program, environment):
    names, count = small_tests(program, environment)
    run = subprocess.run(["valgrind", "-q", "--error-exitcode=9", "--leak-check=full", "--show-leak-kinds=definite",
                          "--errors-for-leak-kinds=definite", f"--suppressions={SUPPRESSIONS}", program, "--gtest_filter=" + ":".join(names)], env=environment, stdout=subprocess.PIPE,
                         stderr=subprocess.STDOUT, text=True)
    return run.returncode == 0, len(names), count, run.stdout


def main():
    environment = dict(os.environ, LD_LIBRARY_PATH=os.path.abspath(sys.argv[1]))
    programs = sys.argv[2:]
    failures = 0
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for program, (passed, small, count, output) in zip(programs, pool.map(lambda p: check(p, environment), programs)):
            print(f"{'passed' if passed else 'FAILED'}  {os.path.basename(program)}: {small} of {count} tests", flush=True)
            if not passed:
                failures += 1
                print(output)
    return failures > 0


if __name__ == "__main__":
    sys.exit(main())
