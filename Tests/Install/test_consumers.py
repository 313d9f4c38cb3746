"""Outside consumers, built as the documents tell from an installed prefix or from the sources; each meets a peer."""

import shutil
import unittest

import own_network
from blocks import documented
from installed import LIBRARIES, PREFIX, ROOT, WORK, configure, empty_folder, must
from sandbox import SUITE_1, Sandbox, Terminal, meet

PROGRAM = ROOT / "Examples/meet/main.cpp"
FETCHED = """cmake_minimum_required(VERSION 3.25)
project(app LANGUAGES CXX)
include(FetchContent)
FetchContent_Declare(ferrox SOURCE_DIR "{root}")
FetchContent_MakeAvailable(ferrox)
add_executable(app main.cpp)
target_link_libraries(app PRIVATE Ferrox::ferrox)
"""

TOLD = """foreach(kind ferrox shared static)
  if(TARGET Ferrox::${kind})
    get_target_property(type Ferrox::${kind} TYPE)
    message(STATUS "${kind} is ${type}")
  endif()
endforeach()
"""


def setUpModule():
    own_network.enter()


class Consumers(unittest.TestCase):
    def meets_a_peer(self, app, environment=None):
        with Sandbox() as sandbox:
            (sandbox.place / "app").symlink_to(app)
            node = Terminal(sandbox, SUITE_1 + " --observe Hello")
            sandbox.environment.update(environment or {})
            meet(node, Terminal(sandbox, "./app"))

    def links_the_shared_library(self, app):
        return "[libferrox.so.1]" in must("readelf", "-d", app)

    def found_by_cmake(self, name, request="find_package(Ferrox 0.1 REQUIRED)", prefix=PREFIX):
        folder = empty_folder(name)
        text = documented("cmake", "installed")
        self.assertIn("find_package(Ferrox 0.1 REQUIRED)", text)
        (folder / "CMakeLists.txt").write_text(text.replace("find_package(Ferrox 0.1 REQUIRED)", request))
        shutil.copy(PROGRAM, folder / "main.cpp")
        status, output = configure(folder, f"-DCMAKE_PREFIX_PATH={prefix}")
        return folder, status, output

    def built_by_cmake(self, *arguments):
        folder, status, output = self.found_by_cmake(*arguments)
        self.assertEqual(status, 0, output)
        must("cmake", "--build", folder / "build")
        return folder / "build/app"

    def built_by_make(self, name, marker):
        folder = empty_folder(name)
        (folder / "Makefile").write_text(documented("make", marker))
        shutil.copy(PROGRAM, folder / "app.cpp")
        must("make", "-C", folder)
        return folder / "app"

    def test_find_package_takes_the_shared_library(self):
        app = self.built_by_cmake("found")
        self.assertTrue(self.links_the_shared_library(app))
        read = next(app.parent.rglob("main.cpp.o.d")).read_text().split()
        ours = [word for word in read if "/Classes/" in word or "/Platform/" in word]
        self.assertGreater(len(ours), 10)
        for header in ours:
            self.assertTrue(header.startswith(str(PREFIX)), header)
        self.meets_a_peer(app)

    def test_find_package_takes_the_static_library_when_asked(self):
        app = self.built_by_cmake("found_static", "find_package(Ferrox 0.1 REQUIRED COMPONENTS static)")
        self.assertFalse(self.links_the_shared_library(app))
        self.meets_a_peer(app)

    def told(self, name, text, *options):
        """What a project that asks in this way is told by which name."""
        folder = empty_folder(name)
        (folder / "CMakeLists.txt").write_text(text + TOLD)
        shutil.copy(PROGRAM, folder / "main.cpp")
        status, output = configure(folder, *options)
        self.assertEqual(status, 0, output)
        return sorted(line.removeprefix("-- ") for line in output.splitlines() if "_LIBRARY" in line)

    def test_find_package_offers_both_by_their_own_names(self):
        found = self.told("both", "cmake_minimum_required(VERSION 3.25)\nproject(app LANGUAGES CXX)\n"
                          "find_package(Ferrox REQUIRED COMPONENTS static shared)\nfind_package(Ferrox REQUIRED)\n",
                          f"-DCMAKE_PREFIX_PATH={PREFIX}")
        self.assertEqual(found, ["ferrox is SHARED_LIBRARY", "shared is SHARED_LIBRARY", "static is STATIC_LIBRARY"])

    def test_find_package_takes_the_static_library_where_there_is_no_other(self):
        prefix = empty_folder("static_only") / "prefix"
        shutil.copytree(PREFIX, prefix, symlinks=True)
        for path in [*prefix.rglob("libferrox.so*"), *prefix.rglob("Ferrox_shared*.cmake")]:
            path.unlink()
        app = self.built_by_cmake("found_static_only", "find_package(Ferrox 0.1 REQUIRED)", prefix)
        self.assertFalse(self.links_the_shared_library(app))
        _, status, output = self.found_by_cmake("refused_shared", "find_package(Ferrox REQUIRED COMPONENTS shared)",
                                                prefix)
        self.assertNotEqual(status, 0, output)
        self.assertIn('component "shared"', output)

    def test_sources_in_a_project_of_shared_libraries_are_one(self):
        found = self.told("shared_sources", FETCHED.format(root=ROOT), "-DBUILD_SHARED_LIBS=ON")
        self.assertEqual(found, ["ferrox is SHARED_LIBRARY", "shared is SHARED_LIBRARY", "static is STATIC_LIBRARY"])
        found = self.told("static_sources", FETCHED.format(root=ROOT))
        self.assertEqual(found, ["ferrox is STATIC_LIBRARY", "static is STATIC_LIBRARY"])

    def test_find_package_refuses_what_is_not_there(self):
        for name, request, said in (
                ("component", "find_package(Ferrox REQUIRED COMPONENTS sliced)", 'component "sliced"'),
                ("version", "find_package(Ferrox 0.9999 REQUIRED)", "0.9999"),
                ("major", "find_package(Ferrox 17 REQUIRED)", "17")):
            with self.subTest(request=request):
                _, status, output = self.found_by_cmake(f"refused_{name}", request)
                self.assertNotEqual(status, 0, output)
                self.assertIn(said, output)

    def test_fetch_content_builds_it_from_the_sources(self):
        # Left as it is for the next run: the whole library is compiled here.
        folder = WORK / "fetched"
        folder.mkdir(parents=True, exist_ok=True)
        (folder / "CMakeLists.txt").write_text(FETCHED.format(root=ROOT))
        shutil.copy(PROGRAM, folder / "main.cpp")
        # Warnings and build type as in this tree, so that a compiler cache knows what it is asked for.
        status, output = configure(folder, "-G", "Ninja", "-DFERROX_WARNINGS_AS_ERRORS=ON", "-DCMAKE_BUILD_TYPE=Release")
        self.assertEqual(status, 0, output)
        must("cmake", "--build", folder / "build", "--target", "app")
        self.assertFalse(self.links_the_shared_library(folder / "build/app"))
        self.meets_a_peer(folder / "build/app")

    def test_installing_a_consumer_installs_nothing_of_ours(self):
        folder = empty_folder("embedding")
        (folder / "CMakeLists.txt").write_text(
            FETCHED.format(root=ROOT) + 'install(FILES main.cpp DESTINATION "src")\n')
        shutil.copy(PROGRAM, folder / "main.cpp")
        status, output = configure(folder)
        self.assertEqual(status, 0, output)
        must("cmake", "--install", folder / "build", "--prefix", folder / "prefix")
        found = [path.relative_to(folder / "prefix").as_posix() for path in (folder / "prefix").rglob("*.*")]
        self.assertEqual(found, ["src/main.cpp"])

    def test_make_with_pkg_config_takes_the_shared_library(self):
        app = self.built_by_make("make", "installed")
        self.assertTrue(self.links_the_shared_library(app))
        self.meets_a_peer(app, {"LD_LIBRARY_PATH": str(LIBRARIES)})

    def test_make_with_pkg_config_takes_the_static_library_when_asked(self):
        app = self.built_by_make("make_static", "installed static")
        self.assertFalse(self.links_the_shared_library(app))
        self.meets_a_peer(app)


if __name__ == "__main__":
    unittest.main()
