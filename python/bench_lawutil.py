"""Evaluation of a million points through lawutil against NumPy's own expression, in one run.

PYTHONPATH=build/python/python /usr/bin/python3 python/bench_lawutil.py
"""
import timeit

import numpy as np

import lawutil

x = np.linspace(-2, 2, 1_000_000)
cases = [
    ("x^3-2*x+1", lambda: (x * x - 2) * x + 1),
    ("sin(x)*exp(x)", lambda: np.sin(x) * np.exp(x)),
]


def best(fn, number=5):
    return min(timeit.repeat(fn, number=number, repeat=3)) / number


for text, native in cases:
    f = lawutil.parse(text)
    batch = best(lambda: f.evaluate(x))
    exact = best(lambda: f.evaluate(x, exact=True))
    numpy = best(native)
    some = x[:10000].tolist()
    loop = best(lambda: [f(v) for v in some], number=1) * 100
    print(f"{text:14s} evaluate {batch * 1e3:6.2f} ms  exact {exact * 1e3:6.2f} ms  "
          f"numpy {numpy * 1e3:6.2f} ms  evaluate/numpy {batch / numpy:5.2f}  "
          f"Python loop of f(x) {loop * 1e3:6.1f} ms  (per 1e6 points)")
