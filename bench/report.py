#!/usr/bin/env python3
"""Prints the benchmark table: operation, size, time, floor, ratio, target.

Times are medians of the repetitions (real time). A floor is one measured
benchmark or the sum of several; ratios with a target are checked."""
import json
import sys

# operation label, benchmark, floor benchmarks (summed), target ratio, sizes the target applies to
ROWS = [
    ("ReadSiteList", "BM_ReadSiteList", ["BM_Floor_ReadSiteList"], 1.5, {100, 1000}),
    ("ReadSiteList, password elements emptied (no decryption)", "BM_ReadSiteList_NoPasswords",
     ["BM_Floor_ReadSiteList"], None, None),
    ("CreateSiteList, fsync in both", "BM_CreateSiteList", ["BM_Floor_CreateSiteList"], 1.5, {100, 1000}),
    ("CreateSiteList, fsync in neither", "BM_CreateSiteList_NoSync", ["BM_Floor_CreateSiteList_NoSync"], 1.5,
     {100, 1000}),
    ("SmartReadSiteList (cache hit)", "BM_SmartReadSiteList_Hit", ["BM_Floor_SharedLock"], 1.5, None),
    ("SmartReadSiteList (refill)", "BM_SmartReadSiteList_Refill", ["BM_Floor_ReadSiteList", "BM_Floor_SharedLock"], None, None),
    ("GetSitelistVersions", "BM_GetSitelistVersions", ["BM_Floor_LoadFile"], 1.3, None),
    ("GetCaCertificates", "BM_GetCaCertificates", ["BM_Floor_LoadFile"], None, None),
    ("MergeSiteLists", "BM_MergeSiteLists", ["BM_Floor_MergeSiteLists"], None, None),
    ("SetSpipeSiteForUpdSite", "BM_SetSpipeSiteForUpdSite", ["BM_Floor_SetSpipeSiteForUpdSite"], None, None),
    ("GetVantorServerInfo", "BM_GetVantorServerInfo", ["BM_Floor_SharedLock"], None, None),
    ("ImportSiteList", "BM_ImportSiteList", ["BM_Floor_ReadSiteList", "BM_Floor_CreateSiteList"], None, None),
    ("createServerSiteListFromSiteList", "BM_createServerSiteListFromSiteList", ["BM_Floor_LoadSave"], None, None),
    ("GetSiteListBuffer", "BM_GetSiteListBuffer", ["BM_Floor_ReadBytes"], None, None),
    ("CreateSiteListFromBuffer", "BM_CreateSiteListFromBuffer", ["BM_Floor_ParseWalk", "BM_Floor_CreateSiteList"], None, None),
    # The conforming XML check every read makes first, over the bytes in
    # memory, against expat without handlers; then the reader against its
    # floor plus that check.
    ("conforming XML check alone (expat)", "BM_XmlCheck", ["BM_Floor_XmlCheck"], None, None),
    ("ReadSiteList, against its floor plus the check", "BM_ReadSiteList",
     ["BM_Floor_ReadSiteList", "BM_XmlCheck"], None, None),
    ("ReadSiteList, password elements emptied, against its floor plus the check", "BM_ReadSiteList_NoPasswords",
     ["BM_Floor_ReadSiteList", "BM_XmlCheck"], None, None),
    # For the choice of parsers (port/xml/WellFormed.h): no floor.
    ("expat with empty element and text handlers", "BM_ExpatEmptyHandlers", [], None, None),
    ("pugixml read-only parse in place", "BM_PugixmlParseInPlace", [], None, None),
]
SIZES = [10, 100, 1000]


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


def main():
    context, times, errors, repetitions = load(sys.argv[1])
    load_avg = ", ".join(f"{x:.2f}" for x in context.get("load_avg", []))
    print(f"{context.get('num_cpus', '?')} CPUs, load average {load_avg or '?'} at the start; "
          f"medians of {repetitions or 1} repetitions, real time\n")
    print("| operation | size | time | floor | ratio | target |")
    print("|---|---:|---:|---:|---:|---|")
    failed = 0
    for label, bench, floors, target, sizes in ROWS:
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
            print(f"| {label} | {n} | {fmt(t)} | {fmt(floor)} | "
                  f"{'-' if ratio is None else f'{ratio:.2f}'} | {verdict} |")
    if "BM_EncryptPassword" in times:
        print(f"| EncryptPassword (one password, as the writer does per Password element) | 1 | "
              f"{fmt(times['BM_EncryptPassword'])} | - | - |  |")
    if len(sys.argv) > 2:
        try:
            with open(sys.argv[2]) as f:
                peak = json.loads(f.read().strip().splitlines()[-1])
        except (OSError, ValueError, IndexError):
            peak = None
        if peak:
            bound = peak["bound_bytes"]
            heap = peak["heap_peak_bytes"]
            rss = peak["rss_growth_kib"] * 1024
            for what, value in (("heap peak (live bytes)", heap), ("resident set growth", rss)):
                ok = value <= bound
                failed += 0 if ok else 1
                print(f"| ReadSiteList peak memory, {what} | {peak['sites']} | {value / 1e6:.3f} MB | "
                      f"{bound / 1e6:.3f} MB | {value / bound:.3f} | ≤ 1 {'met' if ok else 'MISSED'} |")
            print(f"\nmemory bound: {peak['sites']} × sizeof(tag_Site) = {peak['record_bytes']} bytes "
                  f"+ 3 × file size ({peak['file_bytes']} bytes)")
    print(f"\ntargets missed: {failed}")


if __name__ == "__main__":
    main()
