# The two entry points of a new checkout: `make demo` and `make test`.
JOBS ?= $(shell nproc 2>/dev/null || echo 2)

# What the tests need on top of what the tool needs (scripts/install-deps.sh).
TEST_PACKAGES = groff-base libgtest-dev libgmock-dev libxml2-utils

.PHONY: demo test deps test-deps build build-asan

deps:
	@sh scripts/install-deps.sh

test-deps:
	@sh scripts/install-deps.sh $(TEST_PACKAGES)

# The demo builds the tool and the stand-in library alone (the release preset has
# no tests), so a first look does not wait for the test suite.
demo: deps
	cmake --preset release
	cmake --build --preset release -j $(JOBS)
	@sh examples/demo.sh build-release/quillard

build: test-deps
	cmake --preset default
	cmake --build --preset default -j $(JOBS)

build-asan: test-deps
	cmake --preset asan
	cmake --build --preset asan -j $(JOBS)

test: build build-asan
	ctest --preset default -j $(JOBS)
	ctest --preset asan -j $(JOBS)
