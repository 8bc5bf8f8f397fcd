#!/usr/bin/env python3
"""Makes a seeded set of files for the duplicate benchmark, about 2.8 GiB: 2,300 files of 0.6 to 4 MiB, 40 % of them
in groups of two to five copies; among the others 250 sets of one size that differ in their first, middle or last byte;
50,000 small files, a third of them copies; 20 pairs of twin folders; pairs at the limit of 512 KiB and one byte above.

usage: make_duplicates.py OUT [SEED]"""
import os
import random
import sys

FILES = 2300
LIMIT = 524288


class Maker:
    def __init__(self, out, seed):
        self.rng = random.Random(seed)
        self.count = 0
        os.makedirs(out)
        self.folders = [out]
        words = ["photos", "work", "música", "old", "copy", "a", "backup"]
        for i in range(1500):
            parent = self.rng.choice(self.folders[-200:])
            if parent.count("/") - out.count("/") > 9:
                parent = out
            self.folders.append(f"{parent}/d{i:04d} {self.rng.choice(words)}")
            os.mkdir(self.folders[-1])

    def put(self, content):
        ending = self.rng.choice([".jpg", ".bin", ".mov", ".txt", " copy.pdf"])
        with open(f"{self.rng.choice(self.folders)}/f{self.count:06d}{ending}", "xb") as file:
            file.write(content)
        self.count += 1

    def large(self):
        return self.rng.randbytes(int(614400 + min(self.rng.expovariate(1 / 420000), 3.55e6)))

    def copies(self):
        while self.count < 0.4 * FILES:
            content = self.large()
            for _ in range(self.rng.choice([2, 2, 2, 3, 3, 4, 5])):
                self.put(content)

    def lookalikes(self):
        for i in range(250):
            content = bytearray(self.large())
            place = [0, len(content) // 2, len(content) - 1][i % 3]
            for j in range(self.rng.choice([2, 2, 3, 4])):
                content[place] = (content[place] + 1 + j) & 255
                self.put(content)

    def small(self):
        recent = []
        for i in range(50000):
            if i % 3 == 0 and recent:
                content = self.rng.choice(recent)
            else:
                content = self.rng.randbytes(min(int(self.rng.lognormvariate(7.6, 1.6)), LIMIT - 1))
                recent = recent[-49:] + [content]
            self.put(content)

    def twin_folders(self):
        for i in range(20):
            contents = [self.rng.randbytes(self.rng.randint(545000, 1250000)) for _ in range(self.rng.randint(3, 8))]
            for side in "ab":
                folder = f"{self.rng.choice(self.folders)}/pair{i:02d}{side}"
                os.makedirs(f"{folder}/sub")
                for j, content in enumerate(contents):
                    with open(f"{folder}/{'sub/q' if j % 2 else 'p'}{j}.dat", "xb") as file:
                        file.write(content)

    def edges(self):
        for size in (LIMIT, LIMIT + 1):
            content = self.rng.randbytes(size)
            for _ in range(2):
                self.put(content)


def main():
    maker = Maker(sys.argv[1], int(sys.argv[2]) if len(sys.argv) > 2 else 7)
    maker.copies()
    maker.lookalikes()
    while maker.count < FILES:
        maker.put(maker.large())
    maker.small()
    maker.twin_folders()
    maker.edges()


if __name__ == "__main__":
    main()
