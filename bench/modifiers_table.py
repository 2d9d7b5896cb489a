"""Turns the JSON of bench_modifiers into the ratio tables of docs/BENCHMARKS.md.

    build/release/bench/bench_modifiers --benchmark_min_time=0.3 \
        --benchmark_out=mod.json --benchmark_out_format=json
    python3 bench/modifiers_table.py mod.json
"""

import json
import sys

MODS = [
    "ZWidthModifier",
    "ZOpacityModifier",
    "ZScaleModifier",
    "ZCutModifier",
    "ZOffsetModifier",
    "ZDirectionModifier",
    "ZBendModifier",
    "ZClumpModifier",
    "ZKinkModifier",
    "ZFrizzModifier",
]
# Value expressions per strand (map-only ones, all empty here, are not counted).
EXPRESSIONS = {
    "ZWidthModifier": 2,
    "ZOpacityModifier": 2,
    "ZDirectionModifier": 2,
    "ZBendModifier": 4,
    "ZClumpModifier": 2,
    "ZKinkModifier": 3,
    "ZFrizzModifier": 3,
}
SIZES = [100000, 1000000]


def main(path):
    t = {b["name"]: b["real_time"] for b in json.load(open(path))["benchmarks"]}
    out = [
        "### deform",
        "",
        "| Modifier | strands | 1 thread | copy floor | ratio | 2 threads | copy floor | ratio | 2-thread speed-up |",
        "|---|---|---|---|---|---|---|---|---|",
    ]
    for m in MODS:
        floor = "BM_CopyFloorAttributes" if m in ("ZWidthModifier", "ZOpacityModifier") else "BM_CopyFloorCVs"
        for n in SIZES:
            d1, d2 = t[f"BM_Deform<{m}>/{n}/1/0/real_time"], t[f"BM_Deform<{m}>/{n}/2/0/real_time"]
            f1, f2 = t[f"{floor}/{n}/1/0/real_time"], t[f"{floor}/{n}/2/0/real_time"]
            out.append(
                f"| {m[1:-8]} | {n // 1000}k | {d1:.3f} | {f1:.3f} | {d1 / f1:.2f}x | {d2:.3f} | {f2:.3f} | "
                f"{d2 / f2:.2f}x | {d1 / d2:.2f}x |"
            )
    out += [
        "",
        "### evaluate",
        "",
        "| Modifier | strands | expressions | 1 thread | KSeExpr loop | ratio | C++ | ratio | 2 threads | "
        "KSeExpr loop | ratio | 2-thread speed-up |",
        "|---|---|---|---|---|---|---|---|---|---|---|---|",
    ]
    for m in MODS:
        e = EXPRESSIONS.get(m, 1)
        for n in SIZES:
            v1, v2 = t[f"BM_Evaluate<{m}>/{n}/1/0/real_time"], t[f"BM_Evaluate<{m}>/{n}/2/0/real_time"]
            k1, k2 = t[f"BM_KSeExprLoop/{n}/1/{e}/real_time"], t[f"BM_KSeExprLoop/{n}/2/{e}/real_time"]
            h1 = t[f"BM_HandWritten/{n}/1/{e}/real_time"]
            out.append(
                f"| {m[1:-8]} | {n // 1000}k | {e} | {v1:.1f} | {k1:.1f} | {v1 / k1:.2f}x | {h1:.1f} | "
                f"{v1 / h1:.2f}x | {v2:.1f} | {k2:.1f} | {v2 / k2:.2f}x | {v1 / v2:.2f}x |"
            )
    out += [
        "",
        "### bend against the CV count (100k strands, one thread)",
        "",
        "| CVs | deform | copy floor | ratio | growth over half the CVs |",
        "|---|---|---|---|---|",
    ]
    previous = None
    for cvs in (8, 16, 32, 64):
        d = t[f"BM_Deform<ZBendModifier>/cvs/100000/1/{cvs}/real_time"]
        f = t[f"BM_CopyFloorCVs/cvs/100000/1/{cvs}/real_time"]
        growth = f"{d / previous:.2f}x" if previous else ""
        out.append(f"| {cvs} | {d:.1f} | {f:.2f} | {d / f:.1f}x | {growth} |")
        previous = d
    print("\n".join(out))


if __name__ == "__main__":
    main(sys.argv[1])
