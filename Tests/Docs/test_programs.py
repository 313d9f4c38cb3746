"""The programs that the documents show are compiled, run, and meet a peer."""

import os
import subprocess
import tempfile
import unittest

import own_network
from blocks import ROOT, all_blocks
from sandbox import MET_SUITE_1, PATIENCE, SUITE_1, Sandbox, Terminal


def setUpModule():
    own_network.enter()


class Programs(unittest.TestCase):
    def test_blocks_of_programs_are_the_sources_that_are_compiled(self):
        blocks = all_blocks("cpp")
        for block in blocks:
            self.assertIn(block.key, ("file", "part of"), f"{block}: where does it stand?")
            source = [line.strip() for line in (ROOT / block.value).read_text().splitlines()]
            shown = [line.strip() for line in block.text.splitlines()]
            if block.key == "file":
                self.assertEqual(shown, source, f"{block}")
            else:
                starts = range(len(source) - len(shown) + 1)
                self.assertTrue(any(source[at:at + len(shown)] == shown for at in starts), f"{block}")
        self.assertGreater(len(blocks), 0)

    def test_the_first_program_meets_a_peer(self):
        with Sandbox() as sandbox:
            node = Terminal(sandbox, SUITE_1 + " --observe Hello")
            program = Terminal(sandbox, "build/release/Examples/meet")
            try:
                program.wait_for(MET_SUITE_1)
                node.wait_for("Hello from")
                sandbox.until_it_succeeds("ferrox post Hello")
                program.wait_for("hello from")
            finally:
                program.close()
                node.close()

    def test_the_program_with_a_loop_of_its_own_sends_and_receives(self):
        with Sandbox() as sandbox:
            node = Terminal(sandbox, SUITE_1 + " --observe Line")
            program = Terminal(sandbox, "build/release/Examples/own_loop", stdin=subprocess.PIPE)
            try:
                program.wait_for("ready")
                program.wait_for("connected")
                # Two in one piece, and one that comes in two.
                program.process.stdin.write("scene 1\nscene 2\nsce")
                program.process.stdin.flush()
                node.wait_for('"scene 2"')
                program.process.stdin.write("ne 3\n")
                program.process.stdin.flush()
                node.wait_for('"scene 3"')
                self.assertTrue(any('"scene 1"' in line for line in node.seen))
                sandbox.until_it_succeeds("""ferrox post Line --user-info '{"text": "cut"}'""")
                program.wait_for("cut")
                program.process.stdin.close()
                self.assertEqual(program.process.wait(timeout=PATIENCE), 0)
            finally:
                program.close()
                node.close()

    def test_blocks_of_cmake_configure(self):
        for block in all_blocks("cmake"):
            if block.key == "installed":
                continue  # Tests/Install builds it from an installed prefix, and what is meant for make
            with tempfile.TemporaryDirectory() as folder:
                os.symlink(ROOT, f"{folder}/ferrox")
                with open(f"{folder}/main.cpp", "w", encoding="ascii") as file:
                    file.write("int main() {}\n")
                with open(f"{folder}/CMakeLists.txt", "w", encoding="ascii") as file:
                    file.write(block.text)
                done = subprocess.run(["cmake", "-S", folder, "-B", f"{folder}/build"], capture_output=True, text=True,
                                      timeout=PATIENCE, check=False)
                self.assertEqual(done.returncode, 0, f"{block}:\n{done.stderr}")


if __name__ == "__main__":
    unittest.main()
