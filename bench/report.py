#!/usr/bin/env python3
"""Prints the benchmark table: operation, size, time, floor, ratio, target.

Times are medians of the repetitions (real time). A floor is one measured
benchmark or the sum of several; ratios with a target are checked."""
import argparse
import json

# operation label, benchmark, floor benchmarks (summed), target ratio, sizes the target applies to.
# "Crypto-inclusive floor": the floor that also opens (reader) or seals with a
# fresh nonce (writer) every password, as the format requires.
TARGET_SIZES = {100, 1000}
ROWS = [
    ("ReadSiteList, against its crypto-inclusive floor plus the conforming check", "BM_ReadSiteList",
     ["BM_Floor_ReadSiteList_Crypto", "BM_XmlCheck"], 1.2, TARGET_SIZES),
    ("ReadSiteList, against its crypto-inclusive floor", "BM_ReadSiteList", ["BM_Floor_ReadSiteList_Crypto"], None, None),
    ("ReadSiteList, against its floor (no crypto)", "BM_ReadSiteList", ["BM_Floor_ReadSiteList"], None, None),
    ("ReadSiteList, password elements emptied (no decryption), against its floor plus the check",
     "BM_ReadSiteList_NoPasswords", ["BM_Floor_ReadSiteList", "BM_XmlCheck"], None, None),
    ("CreateSiteList, fsync in both, against its crypto-inclusive floor", "BM_CreateSiteList",
     ["BM_Floor_CreateSiteList_Crypto"], 1.3, TARGET_SIZES),
    ("CreateSiteList, fsync in neither, against its crypto-inclusive floor", "BM_CreateSiteList_NoSync",
     ["BM_Floor_CreateSiteList_Crypto_NoSync"], 1.2, TARGET_SIZES),
    ("CreateSiteList, fsync in both, against its floor (ciphertexts made beforehand)", "BM_CreateSiteList",
     ["BM_Floor_CreateSiteList"], None, None),
    ("CreateSiteList, fsync in neither, against its floor (ciphertexts made beforehand)", "BM_CreateSiteList_NoSync",
     ["BM_Floor_CreateSiteList_NoSync"], None, None),
    ("SmartReadSiteList (cache hit)", "BM_SmartReadSiteList_Hit", ["BM_Floor_SharedLock"], 1.5, None),
    ("SmartReadSiteList (refill), against the crypto-inclusive floor plus the check and a lock",
     "BM_SmartReadSiteList_Refill", ["BM_Floor_ReadSiteList_Crypto", "BM_XmlCheck", "BM_Floor_SharedLock"], 1.25,
     TARGET_SIZES),
    ("SmartReadSiteList (refill), against the reader's floor plus a lock", "BM_SmartReadSiteList_Refill",
     ["BM_Floor_ReadSiteList", "BM_Floor_SharedLock"], None, None),
    ("GetSitelistVersions, against pugixml load_file plus the conforming check", "BM_GetSitelistVersions",
     ["BM_Floor_LoadFile", "BM_XmlCheck"], 1.3, {10}),
    ("GetSitelistVersions, against pugixml load_file", "BM_GetSitelistVersions", ["BM_Floor_LoadFile"], None, None),
    ("GetCaCertificates", "BM_GetCaCertificates", ["BM_Floor_LoadFile"], None, None),
    ("MergeSiteLists", "BM_MergeSiteLists", ["BM_Floor_MergeSiteLists"], None, None),
    ("SetSpipeSiteForUpdSite", "BM_SetSpipeSiteForUpdSite", ["BM_Floor_SetSpipeSiteForUpdSite"], None, None),
    ("GetVantorServerInfo", "BM_GetVantorServerInfo", ["BM_Floor_SharedLock"], None, None),
    ("ImportSiteList", "BM_ImportSiteList", ["BM_Floor_ReadSiteList", "BM_Floor_CreateSiteList"], None, None),
    ("createServerSiteListFromSiteList", "BM_createServerSiteListFromSiteList", ["BM_Floor_LoadSave"], None, None),
    ("GetSiteListBuffer, against reading the file and widening it", "BM_GetSiteListBuffer", ["BM_Floor_ReadWiden"],
     1.5, TARGET_SIZES),
    ("GetSiteListBuffer, against reading the file's bytes", "BM_GetSiteListBuffer", ["BM_Floor_ReadBytes"], None, None),
    ("CreateSiteListFromBuffer", "BM_CreateSiteListFromBuffer", ["BM_Floor_ParseWalk", "BM_Floor_CreateSiteList"], None, None),
    # The conforming XML check every read makes first, over the bytes in
    # memory, against expat without handlers.
    ("conforming XML check alone (expat)", "BM_XmlCheck", ["BM_Floor_XmlCheck"], None, None),
    # For the choice of parsers (port/xml/WellFormed.h): no floor.
    ("expat with empty element and text handlers", "BM_ExpatEmptyHandlers", [], None, None),
    ("pugixml read-only parse in place", "BM_PugixmlParseInPlace", [], None, None),
    # The floors themselves, for the growth of each with the list.
    ("crypto-inclusive floor of ReadSiteList", "BM_Floor_ReadSiteList_Crypto", [], None, None),
    ("crypto-inclusive floor of CreateSiteList, fsync", "BM_Floor_CreateSiteList_Crypto", [], None, None),
]
SIZES = [10, 100, 1000, 10000]


def load(path):
    with open(path) as f:
        data = json.load(f)
    times = {}
    errors = set()
    repetitions = None
    for b in data["benchmarks"]:
        name = b.get("run_name", b["name"])
        if b.get("error_occurred"):
            errors.add(name)
            continue
        if b.get("run_type") == "aggregate" and b.get("aggregate_name") != "median":
            continue
        repetitions = b.get("repetitions", repetitions)
        scale = {"ns": 1e-3, "us": 1.0, "ms": 1e3, "s": 1e6}[b.get("time_unit", "ns")]
        times[name] = b["real_time"] * scale
    return data.get("context", {}), times, errors, repetitions


def fmt(us):
    if us is None:
        return "-"
    if us >= 1000:
        return f"{us / 1000:.2f} ms"
    return f"{us:.1f} µs"


def table(times, errors):
    """The benchmark rows; returns the number of targets missed and, per row
    with a target, the ratios by size (for the chart)."""
    print("| operation | size | time | floor | ratio | target |")
    print("|---|---:|---:|---:|---:|---|")
    failed = 0
    chart = []
    for label, bench, floors, target, sizes in ROWS:
        ratios = {}
        for n in SIZES:
            key = f"{bench}/{n}"
            if key in errors:
                print(f"| {label} | {n} | error | | | |")
                failed += 1
                continue
            t = times.get(key)
            if t is None:
                continue
            parts = [times.get(f"{f}/{n}") for f in floors]
            floor = sum(parts) if parts and all(p is not None for p in parts) else None
            ratio = t / floor if floor else None
            verdict = ""
            if target is not None and (sizes is None or n in sizes) and ratio is not None:
                ok = ratio <= target
                failed += 0 if ok else 1
                verdict = f"≤ {target} {'met' if ok else 'MISSED'}"
            if ratio is not None:
                ratios[n] = ratio
            print(f"| {label} | {n} | {fmt(t)} | {fmt(floor)} | "
                  f"{'-' if ratio is None else f'{ratio:.2f}'} | {verdict} |")
        if target is not None and ratios:
            chart.append((label, ratios, target, sizes))
    if "BM_EncryptPassword" in times:
        print(f"| EncryptPassword (one password, as the writer does per Password element) | 1 | "
              f"{fmt(times['BM_EncryptPassword'])} | - | - |  |")
    return failed, chart


def peak_rows(paths):
    """Peak memory of ReadSiteList; the bound is checked at 1,000 sites."""
    failed = 0
    peaks = []
    for path in paths:
        try:
            with open(path) as f:
                peaks.append(json.loads(f.read().strip().splitlines()[-1]))
        except (OSError, ValueError, IndexError):
            continue
    if not peaks:
        return 0
    print("\n| ReadSiteList peak memory | sites | measured | bound | ratio | target |")
    print("|---|---:|---:|---:|---:|---|")
    for peak in peaks:
        bound = peak["bound_bytes"]
        heap = peak["heap_peak_bytes"]
        rss = peak["rss_growth_kib"] * 1024
        for what, value in (("heap peak (live bytes)", heap), ("resident set growth", rss)):
            verdict = ""
            if peak["sites"] == 1000:
                ok = value <= bound
                failed += 0 if ok else 1
                verdict = f"≤ 1 {'met' if ok else 'MISSED'}"
            print(f"| {what} | {peak['sites']} | {value / 1e6:.3f} MB | {bound / 1e6:.3f} MB | "
                  f"{value / bound:.3f} | {verdict} |")
    print("\nmemory bound: sites × sizeof(tag_Site) + 3 × file size; " +
          "; ".join(f"{p['sites']} sites: {p['record_bytes']} + 3 × {p['file_bytes']} bytes" for p in peaks))
    return failed


def sync_rows(path):
    """fsync and fdatasync per writing operation (from the counting test's
    JSON output) beside the minimum: one per file written, one per directory
    changed."""
    try:
        with open(path) as f:
            data = json.load(f)
    except (OSError, ValueError):
        return 0
    print("\n| writing operation | files written | directories changed | minimum | file fsyncs | "
          "directory fsyncs | fdatasyncs | at the minimum |")
    print("|---|---:|---:|---:|---:|---:|---:|---|")
    above = 0
    for suite in data.get("testsuites", []):
        for case in suite.get("testsuite", []):
            if "operation" not in case:
                continue
            files, dirs = int(case["files_written"]), int(case["directories_changed"])
            counts = [int(case[k]) for k in ("file_fsyncs", "directory_fsyncs", "fdatasyncs")]
            minimum = files + dirs
            at = sum(counts) == minimum
            above += 0 if at else 1
            print(f"| {case['operation']} | {files} | {dirs} | {minimum} | {counts[0]} | {counts[1]} | {counts[2]} | "
                  f"{'yes' if at else 'no: ' + case.get('reason', '')} |")
    return above


def fresh_rows(path):
    """The fresh process against the least a fresh process must do."""
    try:
        with open(path) as f:
            d = json.load(f)
    except (OSError, ValueError):
        return
    helper, floor = d["helper"], d["floor"]
    print(f"\nA fresh process reading the 100-site list (medians of {d['rounds']} starts, wall time from spawn "
          "to exit):\n")
    print("| program | wall | in main |")
    print("|---|---:|---:|")
    rows = [
        ("empty main (starting a process)", d["empty"], None),
        ("empty main linked as the floor (libcrypto, libexpat)", d["floor_libraries"], None),
        ("empty main linked against the shared library", d["library_libraries"], None),
        ("floor: OpenSSL init, key, check, parse, decrypt", floor, floor.get("main_us")),
        ("helper: construct, ReadSiteList", helper, helper.get("main_us")),
    ]
    for label, r, in_main in rows:
        print(f"| {label} | {fmt(r['wall_us'])} | {fmt(in_main)} |")
    print(f"\nratio helper / floor: {helper['wall_us'] / floor['wall_us']:.2f} (wall), "
          f"{helper['main_us'] / floor['main_us']:.2f} (in main)\n")
    print("| where the time goes | floor | helper |")
    print("|---|---:|---:|")
    print(f"| spawn to main (loading and relocating the libraries, static constructors) | "
          f"{fmt(floor['to_main_us'])} | {fmt(helper['to_main_us'])} |")
    print(f"| main | {fmt(floor['main_us'])} | {fmt(helper['main_us'])} |")
    print(f"| end of main to exit seen (exit handlers, destructors, unmapping) | "
          f"{fmt(floor['after_main_us'])} | {fmt(helper['after_main_us'])} |")
    print(f"\nthe floor's main: OpenSSL initialisation {fmt(floor['openssl_init_us'])}, key file and cipher set-up "
          f"(provider fetch, keying) {fmt(floor['key_us'])}, reading and checking {fmt(floor['read_check_us'])}, "
          f"parsing and decrypting {fmt(floor['parse_decrypt_us'])}")


def draw(chart, path):
    """The ratios of the rows with a target, one group of bars per operation
    (one bar per size), each target a line over its group."""
    import matplotlib
    matplotlib.use("Agg")
    import matplotlib.pyplot as plt
    sizes = [n for n in SIZES if any(n in r for _, r, _, _ in chart)]
    width = 0.8 / max(len(sizes), 1)
    fig, ax = plt.subplots(figsize=(12, 6))
    for k, n in enumerate(sizes):
        xs = [i + (k - (len(sizes) - 1) / 2) * width for i in range(len(chart))]
        ys = [r.get(n, 0) for _, r, _, _ in chart]
        ax.bar(xs, ys, width, label=f"{n} sites")
    for i, (_, _, target, _) in enumerate(chart):
        ax.hlines(target, i - 0.45, i + 0.45, colors="black", linestyles="dashed",
                  label="target" if i == 0 else None)
    labels = [label.replace(", ", ",\n").replace(" plus", "\nplus") for label, _, _, _ in chart]
    ax.set_xticks(range(len(chart)))
    ax.set_xticklabels(labels, fontsize=7)
    ax.set_ylabel("time / floor")
    ax.axhline(1.0, color="grey", linewidth=0.5)
    ax.legend()
    ax.set_title("Operation time over its floor (medians of one bench/run); dashed: target")
    fig.tight_layout()
    fig.savefig(path, dpi=100)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("bench")
    parser.add_argument("--peak", action="append", default=[])
    parser.add_argument("--syncs")
    parser.add_argument("--fresh")
    parser.add_argument("--chart")
    args = parser.parse_args()
    context, times, errors, repetitions = load(args.bench)
    load_avg = ", ".join(f"{x:.2f}" for x in context.get("load_avg", []))
    print(f"{context.get('num_cpus', '?')} CPUs, load average {load_avg or '?'} at the start; "
          f"medians of {repetitions or 1} repetitions, real time\n")
    failed, chart = table(times, errors)
    failed += peak_rows(args.peak)
    above = sync_rows(args.syncs) if args.syncs else 0
    if args.fresh:
        fresh_rows(args.fresh)
    if args.chart and chart:
        draw(chart, args.chart)
        print(f"\nchart: {args.chart}")
    print(f"\ntargets missed: {failed}; writing operations above their fsync minimum: {above}")


if __name__ == "__main__":
    main()
