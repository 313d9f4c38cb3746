"""scripts/check-layers over small trees that break one rule each."""

import pathlib
import shutil
import subprocess
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]

SOUND = {
    "Platform/Net/CMakeLists.txt": "ferrox_sources(Socket.cpp)\nferrox_public_headers(\n  Address.h\n  Socket.h)\n",
    "Classes/CMakeLists.txt": "ferrox_public_headers(Server.h)\n",
    "Platform/Net/Address.h": "#include <string>\n",
    "Platform/Net/Socket.cpp": '#include "Platform/Net/Socket.h"\n#include <boost/asio.hpp>\n',
    "Platform/Net/Socket.h": '#include "Platform/Net/Address.h"\n',
    "Platform/Net/SocketPool.h": "#include <boost/asio/ip/tcp.hpp>\n",
    "Platform/Net/SocketState.h": "#include <string>\n",
    "Classes/Server.h": '#include "Platform/Net/Socket.h"\n',
    "Classes/Server.cpp": '#include "Classes/Server.h"\n#include <openssl/sha.h>\n',
    "Apps/command/main.cpp": '#include <fmt/format.h>\n#include "Classes/Server.h"\n#include "Platform/Net/Address.h"\n',
    "Apps/ferrox/Arguments/CommandLine.cpp": "#include <CLI/CLI.hpp>\n",
    "Tests/ServerTests.cpp": '#include "Classes/Server.h"\n#include "Platform/Net/SocketPool.h"\n',
}


class LayerRule(unittest.TestCase):
    def check(self, *arguments, **changes):
        place = pathlib.Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, place)
        for name, text in {**SOUND, **changes.get("files", {})}.items():
            path = place / name
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(text)
        command = [ROOT / "scripts" / "check-layers", "--root", place, *arguments]
        return subprocess.run(command, capture_output=True, text=True)

    def refuses(self, files, *mentioned):
        done = self.check(files=files)
        self.assertEqual(done.returncode, 1, done.stdout + done.stderr)
        for text in mentioned:
            self.assertIn(text, done.stdout)

    def test_accepts_a_sound_tree(self):
        done = self.check()
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)

    def test_platform_never_includes_classes(self):
        self.refuses({"Platform/Net/Up.cpp": '#include "Classes/Server.h"\n'}, "Platform/Net/Up.cpp", "Classes")

    def test_the_library_knows_neither_command_nor_tests(self):
        self.refuses({"Apps/command/Run.h": "", "Classes/Up.cpp": '#include "Apps/command/Run.h"\n'}, "Classes/Up.cpp")
        self.refuses({"Tests/Fake.h": "", "Platform/Net/Up.cpp": '#include "Tests/Fake.h"\n'}, "Platform/Net/Up.cpp")

    def test_classes_headers_show_no_other_project(self):
        self.refuses({"Classes/Bad.h": "#include <boost/json.hpp>\n"}, "Classes/Bad.h -> boost/json.hpp")

    def test_classes_headers_show_none_through_platform_either(self):
        self.refuses(
            {"Classes/Bad.h": '#include "Platform/Net/SocketPool.h"\n'},
            "Classes/Bad.h -> Platform/Net/SocketPool.h -> boost/asio/ip/tcp.hpp",
        )

    def test_a_seam_shows_no_other_project(self):
        self.refuses({"Platform/Net/Address.h": "#include <unicode/unistr.h>\n"}, "unicode/unistr.h")

    def test_the_command_includes_public_headers_only(self):
        self.refuses({"Apps/command/x.cpp": '#include "Platform/Net/SocketPool.h"\n'}, "SocketPool.h")
        self.refuses({"Apps/command/x.cpp": "#include <boost/asio.hpp>\n"}, "Apps/command/x.cpp")

    def test_what_is_not_named_as_public_is_private(self):
        self.refuses({"Apps/command/x.cpp": '#include "Platform/Net/SocketState.h"\n'}, "Apps/command/x.cpp", "SocketState.h")
        self.refuses({"Examples/x/main.cpp": '#include "Platform/Net/SocketState.h"\n'}, "Examples/x/main.cpp")

    def test_public_headers_need_no_private_ones(self):
        self.refuses(
            {"Platform/Net/Socket.h": '#include "Platform/Net/SocketState.h"\n'}, "Platform/Net/Socket.h", "SocketState.h"
        )

    def test_public_headers_exist(self):
        self.refuses({"Classes/CMakeLists.txt": "ferrox_public_headers(Server.h Gone.h)\n"}, "Classes/Gone.h")

    def test_only_public_headers_say_what_leaves_the_shared_library(self):
        self.refuses({"Platform/Net/SocketState.h": "class FRX_EXPORT State;\n"}, "Platform/Net/SocketState.h")
        self.refuses({"Classes/Server.cpp": "FRX_EXPORT void serve() {}\n"}, "Classes/Server.cpp")
        done = self.check(files={"Classes/Server.h": "class FRX_EXPORT Server;\n"})
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)

    def test_the_libraries_of_the_command_stay_there(self):
        self.refuses({"Classes/Bad.cpp": "#include <spdlog/spdlog.h>\n"}, "Classes/Bad.cpp")
        self.refuses({"Platform/Net/Bad.cpp": "#include <fmt/format.h>\n"}, "Platform/Net/Bad.cpp")

    def test_one_source_file_speaks_to_the_parser(self):
        for name in ("Apps/command/main.cpp", "Apps/ferrox/Arguments/CommandLine.h", "Tests/ServerTests.cpp"):
            with self.subTest(name=name):
                self.refuses({name: "#include <CLI/CLI.hpp>\n"}, name + " includes CLI/CLI.hpp")

    def test_examples_need_nothing_else(self):
        self.refuses({"Examples/x/main.cpp": "#include <CLI/CLI.hpp>\n"}, "Examples/x/main.cpp")

    def test_files_do_not_include_each_other(self):
        self.refuses({"Platform/Net/Address.h": '#include "Platform/Net/Socket.h"\n'}, "include each other")

    def test_includes_are_relative_to_the_root(self):
        self.refuses({"Classes/Bad.cpp": '#include "Server.h"\n'}, 'includes "Server.h"')

    def test_an_empty_tree_is_no_success(self):
        place = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, place)
        done = subprocess.run([ROOT / "scripts" / "check-layers", "--root", place], capture_output=True)
        self.assertNotEqual(done.returncode, 0)

    def test_lists_public_headers(self):
        done = self.check("--public-headers")
        self.assertEqual(
            done.stdout.split(), ["Classes/Server.h", "Platform/Net/Address.h", "Platform/Net/Socket.h"]
        )

    def test_lists_headers_that_show_no_other_project(self):
        done = self.check("--plain-headers")
        self.assertEqual(
            done.stdout.split(),
            ["Classes/Server.h", "Platform/Net/Address.h", "Platform/Net/Socket.h", "Platform/Net/SocketState.h"],
        )


if __name__ == "__main__":
    unittest.main()
