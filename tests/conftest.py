"""What all Python tests share: which build they test."""


def pytest_addoption(parser):
    parser.addoption(
        "--build",
        action="append",
        metavar="FOLDER",
        help="build folder whose programs are tested; repeat it for several (default: build/asan)",
    )
