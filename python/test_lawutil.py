"""Tests of the Python module lawutil: tables of cases, and no law left alive after each."""
import doctest
import gc
import math
import os
import threading
import unittest

import numpy as np

import lawutil


class LawutilTest(unittest.TestCase):
    def setUp(self):
        gc.collect()
        self.laws = lawutil._live_laws()
        self.bytes = lawutil._live_bytes()

    def tearDown(self):
        gc.collect()
        self.assertEqual(lawutil._live_laws(), self.laws, "laws left alive")
        self.assertEqual(lawutil._live_bytes(), self.bytes, "tracked bytes left alive")

    def test_print(self):
        # text, str, Maple spelling, take_dim, return_dim
        rows = [
            ("x^2+sin(x)", "X^2+SIN(X)", "X**2+sin(X)", 1, 1),
            ("x*y+z", "X*Y+Z", "X*Y+Z", 3, 1),
            ("vec(cos(t),sin(t),t)", "VEC(COS(T),SIN(T),T)", None, 1, 3),
            ("2", "2", "2", 0, 1),
        ]
        for text, printed, maple, take, ret in rows:
            f = lawutil.parse(text)
            self.assertEqual((str(f), f.take_dim, f.return_dim), (printed, take, ret), text)
            self.assertEqual(repr(f), "Law('%s')" % printed)
            self.assertEqual(lawutil.Law(printed), f)
            self.assertNotEqual(f, printed)
            if maple:
                self.assertEqual(f.maple(), maple)
        self.assertIsNone(lawutil.parse("NULL"))
        self.assertRaises(ValueError, lawutil.Law, "NULL")

    def test_read_faults(self):
        # text, code name, column (None: no place in the text)
        rows = [
            ("asin(x)", "LAW_SYNTAX", 1),
            ("sin(", "LAW_SYNTAX", 4),
            ("x^^2", "LAW_SYNTAX", 3),
            ("step(x,1)", "LAW_STEP_NUM", None),
        ]
        for text, name, column in rows:
            with self.assertRaises(lawutil.LawError, msg=text) as caught:
                lawutil.parse(text)
            e = caught.exception
            self.assertEqual((e.code_name, e.column), (name, column), text)
            self.assertGreater(e.code, 0)
            self.assertTrue(e.reason and e.reason in str(e), str(e))

    def test_evaluate_point(self):
        # text, point, value (float or tuple)
        rows = [
            ("x^2+sin(x)", (0.5,), 0.25 + math.sin(0.5)),
            ("x*y+z", (1, 2, 3), 5.0),
            ("vec(cos(t),sin(t),t)", (0.0,), (1.0, 0.0, 0.0)),
            ("2", (), 2.0),
            ("2", (7,), 2.0),
        ]
        for text, point, value in rows:
            self.assertEqual(lawutil.parse(text)(*point), value, text)
        f = lawutil.parse("sqrt(x)")
        with self.assertRaises(lawutil.LawError) as caught:
            f(-1)
        self.assertEqual(caught.exception.code_name, "LAW_SQRT")
        self.assertRaises(ValueError, lawutil.parse("x*y"), 1)
        self.assertRaises(TypeError, f, [1.0, 2.0])

    def test_evaluate_arrays(self):
        # More points than one chunk of the batch (8192).
        x = np.linspace(-2.0, 2.0, 20001)
        xy = np.stack([x, x[::-1]], axis=-1)
        # text, points, expected values, shape
        rows = [
            ("x^3-2*x+1", x, x**3 - 2 * x + 1, (20001,)),
            ("sin(x)*exp(x)", x.reshape(3, -1), (np.sin(x) * np.exp(x)).reshape(3, -1), (3, 6667)),
            ("x*y-y", xy, xy[:, 0] * xy[:, 1] - xy[:, 1], (20001,)),
            ("vec(x,x^2)", x, np.stack([x, x * x], axis=-1), (20001, 2)),
            ("3", x, np.full(20001, 3.0), (20001,)),
            ("x", 2.5, 2.5, ()),
        ]
        for text, points, expected, shape in rows:
            f = lawutil.parse(text)
            for exact in (False, True):
                y = f.evaluate(points, exact=exact)
                self.assertEqual(y.shape, shape, text)
                np.testing.assert_allclose(y, expected, rtol=1e-14, atol=1e-14, err_msg=text)
            # The batch agrees with the tree at every point.
            if f.return_dim == 1 and f.take_dim == 1:
                tree = [f(float(v)) for v in np.ravel(points)]
                self.assertEqual(f.evaluate(points, exact=True).ravel().tolist(), tree, text)

    def test_domain_errors_in_arrays(self):
        # text, points, NaN positions
        rows = [
            ("sqrt(x)", [-1.0, 0.0, 4.0], [True, False, False]),
            ("ln(x)*vec(1,2)", [1.0, -1.0], [[False, False], [True, True]]),
        ]
        for text, points, nans in rows:
            f = lawutil.parse(text)
            self.assertEqual(np.isnan(f.evaluate(points)).tolist(), nans, text)
            with self.assertRaises(lawutil.LawError, msg=text) as caught:
                f.evaluate(points, errors="raise")
            self.assertIn("point", str(caught.exception))
        # The first failing point is named, also past the first chunk of the batch.
        points = np.ones((10000, 2))
        points[9000, 0] = -1.0
        with self.assertRaisesRegex(lawutil.LawError, r"\(point 9000\)"):
            lawutil.parse("sqrt(x)*y").evaluate(points, errors="raise")
        f = lawutil.parse("x*y")
        self.assertRaises(ValueError, f.evaluate, [1.0, 2.0, 3.0])
        self.assertRaises(ValueError, f.evaluate, [[1.0, 2.0]], errors="ignore")

    def test_symbolic(self):
        # text, variable, order, derivative, simplified text (level 1)
        rows = [
            ("x^2+sin(x)", 0, 1, "2*X+COS(X)"),
            ("x^2+sin(x)", "x", 2, "2-SIN(X)"),
            ("x*y^2", "Y", 1, "2*Y*X"),
            ("x*y^2", 1, 0, "X*Y^2"),
            ("exp(x)", "T", 3, "EXP(X)"),
        ]
        for text, var, order, derivative in rows:
            d = lawutil.parse(text).derivative(var, order)
            self.assertEqual(str(d), derivative, (text, var, order))
        self.assertEqual(str(lawutil.parse("x+0*y+x").simplify()), "2*X")
        self.assertRaises(ValueError, lawutil.parse("x").derivative, "q")

    def test_roots(self):
        f = lawutil.parse("(x-1)*(x-2)^2*(x-3)^3")
        found = [(round(r.x, 9), r.kind, r.multiplicity) for r in f.roots(0, 4)]
        self.assertEqual(found, [(1, "simple", 1), (2, "even multiple", 2),
                                 (3, "odd multiple", 3)])
        self.assertEqual([r.kind for r in lawutil.parse("1/(x-1)").roots(0, 2)], ["pole"])
        np.testing.assert_allclose(lawutil.parse("x^2-2").nroot(0, 2), [math.sqrt(2)], rtol=1e-7)
        self.assertEqual(lawutil.parse("x^2-2").nroot(2, 3), [])
        with self.assertRaises(lawutil.LawError) as caught:
            lawutil.parse("x").roots(0, math.inf)
        self.assertEqual(caught.exception.code_name, "LAW_BAD_BOUNDS")

    def test_extrema(self):
        # text, a, b, where the minimum is, where the maximum is (Nmin and Nmax rest on
        # Nroot, which finds the critical points its probes reach to 1e-7)
        rows = [
            ("(x-1)^2", 0, 3, 1.0, 3.0),
            ("x^3-3*x", -1.5, 1.5, 1.0, -1.0),
            ("x*exp(-x)", 0, 3, 0.0, 1.0),
        ]
        for text, a, b, low, high in rows:
            f = lawutil.parse(text)
            self.assertAlmostEqual(f.nmin(a, b), low, places=6, msg=text)
            self.assertAlmostEqual(f.nmax(a, b), high, places=6, msg=text)

    def test_integrate(self):
        # text, a, b, integral
        rows = [
            ("x^2", 0, 3, 9.0),
            ("1/sqrt(x)", 0, 1, 2.0),
            ("abs(x)", -1, 2, 2.5),
        ]
        for text, a, b, value in rows:
            r = lawutil.parse(text).integrate(a, b)
            self.assertEqual(r.status, "converged", text)
            self.assertLessEqual(abs(r.value - value), max(r.error, 1e-13), text)
            self.assertGreater(r.evaluations, 0)

    def test_sw_curve(self):
        c = lawutil.parse("sin(x)").to_sw_curve(0, 3, 1e-6)
        n = len(c.control_points)
        self.assertEqual(c.control_points.shape, (n, 3))
        self.assertEqual(len(c.knots), n + c.degree + 1)
        self.assertIsNone(c.weights)
        self.assertLessEqual(c.max_error, 1e-6)
        with self.assertRaises(lawutil.LawError) as caught:
            lawutil.parse("1/x").to_sw_curve(-1, 1, 1e-6)
        self.assertEqual(caught.exception.code_name, "BAD_SINGULARITIES")

    def test_laws_released(self):
        before = lawutil._live_laws()
        f = lawutil.parse("x^2+sin(x)")
        f.evaluate(np.arange(10.0))  # the compiled program holds a reference too
        d = f.derivative()
        self.assertGreater(lawutil._live_laws(), before)
        del f, d
        gc.collect()
        self.assertEqual(lawutil._live_laws(), before)

    def test_other_thread(self):
        # A law made and used on another thread (never shared) works and is released.
        out = []
        t = threading.Thread(target=lambda: out.append(lawutil.parse("x+1")(1.0)))
        t.start()
        t.join()
        self.assertEqual(out, [2.0])

    def test_readme_session(self):
        # The README's Python session, replayed.
        readme = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "README.md")
        with open(readme, encoding="utf-8") as f:
            section = f.read().split("\n## Python\n", 1)[1]
        text = section.split("```pycon\n", 1)[1].split("```", 1)[0]
        test = doctest.DocTestParser().get_doctest(text, {}, "README Python", readme, 0)
        runner = doctest.DocTestRunner(optionflags=doctest.NORMALIZE_WHITESPACE)
        runner.run(test)
        del test
        self.assertEqual(runner.summarize(verbose=False).failed, 0)


if __name__ == "__main__":
    unittest.main(verbosity=1)
