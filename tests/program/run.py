"""Runs all cases, several in parallel, and prints one line each."""
import argparse
import concurrent.futures
import importlib
import sys
import time
import traceback

from bench import CASES, ProgramBench

for module in ("cases_offline", "cases_printers", "cases_hints", "cases_update", "cases_recovery", "cases_signals",
               "cases_terminal", "cases_output", "cases_window", "cases_history",
               "cases_doctor", "cases_processes"):
    importlib.import_module(module)


def run(sentence, function, options):
    begun = time.monotonic()
    bench = ProgramBench(options)
    try:
        function(bench)
        return True, sentence, time.monotonic() - begun, ""
    except Exception:  # any exception fails the case
        return False, sentence, time.monotonic() - begun, traceback.format_exc()
    finally:
        bench.close()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--zulctl", required=True)
    parser.add_argument("--window", required=True)
    parser.add_argument("--firmware-archive", required=True)
    parser.add_argument("--history-writer", required=True)
    parser.add_argument("--only", default="", help="cases whose sentence holds this")
    options = parser.parse_args()
    chosen = [entry for entry in CASES if options.only in entry[0]]
    failed = 0
    # Most of an update's time is waiting, so more run in parallel than there are processors.
    with concurrent.futures.ThreadPoolExecutor(6) as pool:
        results = pool.map(lambda entry: run(*entry, options), chosen)
        for number, (passed, sentence, seconds, trouble) in enumerate(results, 1):
            print(f"{'ok' if passed else 'not ok'} {number} - {sentence} ({seconds:.1f} s)", flush=True)
            if not passed:
                failed += 1
                print("".join(f"    {line}\n" for line in trouble.splitlines()), end="", flush=True)
    print(f"program: {len(chosen) - failed} passed, {failed} failed")
    return 1 if failed or not chosen else 0


sys.exit(main())
