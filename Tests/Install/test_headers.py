"""Each installed header compiles alone where nothing else of the project is."""

import shutil
import unittest

from installed import PREFIX, ROOT, WORK, configure, must, public_headers


class Headers(unittest.TestCase):
    def test_each_compiles_alone_without_a_warning(self):
        project = WORK / "project"
        shutil.rmtree(project, ignore_errors=True)
        shutil.copytree(ROOT / "Tests/Install/headers", project)
        cache = shutil.which("ccache")
        options = [f"-DCMAKE_CXX_COMPILER_LAUNCHER={cache}"] if cache else []
        status, output = configure(project, "-G", "Ninja", f"-DCMAKE_PREFIX_PATH={PREFIX}", *options)
        self.assertEqual(status, 0, output)
        self.assertIn(f"headers found: {len(public_headers())}\n", output)
        must("cmake", "--build", project / "build", "--", "-k", "0")


if __name__ == "__main__":
    unittest.main()
