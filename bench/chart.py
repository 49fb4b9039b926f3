"""Draws the measured functions that have targets, as bars with the target marked on each."""
import matplotlib

matplotlib.use("svg")
from matplotlib import pyplot  # noqa: E402

# The same measurements give the same file, but for its figures; text stays text.
matplotlib.rcParams["svg.hashsalt"] = "qorcvmx"
matplotlib.rcParams["svg.fonttype"] = "none"

BAR, LATE, TARGET = "#2f6f8f", "#b5452c", "#1c1c1c"


def draw(rows, level, path):
    """rows: (function, case, size, copies, target or None), in the order of the table."""
    rows = [row for row in rows if row[4] is not None]
    if not rows:
        return False
    sizes = sorted({row[2] for row in rows}, key=lambda size: int(size.split("x")[0]))
    labels = list(dict.fromkeys((row[0], row[1]) for row in rows))
    figure, panels = pyplot.subplots(1, len(sizes), sharey=True, squeeze=False,
                                     figsize=(4.5 + 4 * len(sizes), 1.2 + 0.2 * len(labels)))
    for panel, size in zip(panels[0], sizes):
        for function, case, row_size, copies, target in rows:
            if row_size != size:
                continue
            y = labels.index((function, case))
            panel.barh(y, copies, color=LATE if copies >= target else BAR, height=0.7)
            panel.plot([target, target], [y - 0.42, y + 0.42], color=TARGET, linewidth=1.5)
        panel.set_xscale("log")
        panel.set_xlim(left=0.3)
        panel.set_title(f"{size}, level {level}, one thread", fontsize=9)
        panel.set_xlabel("copies (bar: measured, mark: target)", fontsize=8)
        panel.tick_params(labelsize=7)
        panel.grid(axis="x", color="#dddddd", linewidth=0.5)
        panel.set_axisbelow(True)
    panels[0][0].set_yticks(range(len(labels)), [f"{function}  {case[:34]}" for function, case in labels], fontsize=6.5)
    panels[0][0].set_ylim(len(labels) - 0.4, -0.6)
    figure.tight_layout()
    figure.savefig(path, metadata={"Date": None})
    return True
