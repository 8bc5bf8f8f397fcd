#!/usr/bin/env python3
"""Makes a seeded folder tree for the walk benchmark: bushy, up to 12 levels deep, small files with a long tail and
a few large sparse ones, a few folders with very many entries.

usage: make_tree.py OUT [FOLDERS] [FILES] [SEED]"""
import os
import random
import sys


def words(rng, letters="abcdefghijklmnopqrstuvwxyz"):
    return ["".join(rng.choice(letters) for _ in range(rng.randint(3, 11))) for _ in range(800)]


def make_folders(out, count, rng, names):
    os.makedirs(out)
    folders = [(out, 0)]
    while len(folders) < count:
        # A parent among the newest half of the time: deep parts beside bushy ones.
        if rng.random() < 0.5:
            parent, depth = folders[-rng.randint(1, min(50, len(folders)))]
        else:
            parent, depth = rng.choice(folders)
        if depth < 12:
            path = f"{parent}/{rng.choice(names)}{len(folders):x}"
            os.mkdir(path)
            folders.append((path, depth + 1))
    return folders


def make_files(folders, count, rng, names):
    endings = [".txt", ".js", ".json", ".png", ".h", ".cache", ".log", "", ".plist", ".html", ".dat"]
    blob = bytes(rng.getrandbits(8) for _ in range(65536))
    weights = [rng.paretovariate(1.3) for _ in folders]
    for i, which in enumerate(rng.choices(range(len(folders)), weights=weights, k=count)):
        path = f"{folders[which][0]}/{rng.choice(names)}-{i:x}{rng.choice(endings)}"
        with open(path, "xb", buffering=0) as file:
            if i % 30000 == 7:
                file.truncate(rng.randint(1 << 30, 1 << 36))
            else:
                file.write(blob[: min(int(rng.lognormvariate(5.5, 2)), 60000)])


def main():
    out = sys.argv[1]
    folder_count, file_count, seed = (int(a) for a in (sys.argv[2:] + ["30000", "300000", "1"][len(sys.argv) - 2 :]))
    rng = random.Random(seed)
    names = words(rng)
    folders = make_folders(out, folder_count, rng, names)
    make_files(folders, file_count, rng, names)


if __name__ == "__main__":
    main()
