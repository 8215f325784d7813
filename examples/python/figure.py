#!/usr/bin/env python3
"""From frames to a figure: figure.py OUTPUT.png [FRAME.tiff ...]

Without frames a burst is simulated, whose truth is known. Needs numpy and matplotlib, and tifffile for frames from files.
"""

import sys

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt
import numpy as np

import movra_sr


def main(output, files):
    # 1. Frames: an array of frames x rows x columns.
    truth = None
    if files:
        import tifffile

        frames = np.stack([tifffile.imread(file) for file in files])
        reference = 0
    else:
        burst = movra_sr.simulate(width=160, height=120, frames=6, seed=4, roll=0.3)
        frames, truth, reference = burst.frames, burst.truth, burst.reference

    # 2. The image, and what is known about it.
    result = movra_sr.reconstruct(frames, reference=reference)
    print(f"{result.status.text}; sr factor {result.sr_factor:.2f}; {1000 * result.timings['total']:.0f} ms")
    if truth is not None:
        print(f"one frame, bicubic: {movra_sr.compare(frames[reference], truth).psnr:.1f} dB")
        print(f"reconstruction:     {movra_sr.compare(result.image, truth).psnr:.1f} dB")

    # 3. The figure.
    low, high = np.nanpercentile(frames[reference], [1, 99])
    scale = {"cmap": "inferno", "vmin": low, "vmax": high, "interpolation": "nearest"}
    figure, axes = plt.subplots(2, 2, figsize=(11, 8.5), constrained_layout=True)
    rows, columns = frames[reference].shape
    extent = (-0.5, columns - 0.5, rows - 0.5, -0.5)
    axes[0, 0].imshow(frames[reference], extent=extent, **scale)
    axes[0, 0].set_title("one frame")
    picture = axes[0, 1].imshow(result.image, extent=extent, **scale)
    axes[0, 1].set_title("super-resolution")
    figure.colorbar(picture, ax=axes[0, :], label="value", shrink=0.9)
    backing = axes[1, 0].imshow(result.coverage, extent=extent, cmap="viridis", vmin=0, vmax=len(frames))
    axes[1, 0].set_title("coverage: frames that back a pixel")
    figure.colorbar(backing, ax=axes[1, 0], shrink=0.8)
    x, y = result.shifts.T
    axes[1, 1].axhline(0, color="0.8")
    axes[1, 1].axvline(0, color="0.8")
    axes[1, 1].plot(x, y, "o")
    for i, place in enumerate(result.shifts):
        if np.isfinite(place).all():
            axes[1, 1].annotate(f"frame {i}", place, xytext=(5, 5), textcoords="offset points")
    axes[1, 1].margins(0.4)
    axes[1, 1].set_aspect("equal", adjustable="datalim")
    axes[1, 1].invert_yaxis()
    axes[1, 1].set_title("shifts at the middle")
    axes[1, 1].set_xlabel("x, low-resolution pixels")
    axes[1, 1].set_ylabel("y")
    figure.savefig(output, dpi=110)
    return 0


if __name__ == "__main__":
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    sys.exit(main(sys.argv[1], sys.argv[2:]))
