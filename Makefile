# The two entry points of a new checkout: `make demo` and `make test`.
JOBS ?= $(shell nproc 2>/dev/null || echo 2)

.PHONY: demo test deps build build-asan

deps:
	@sh scripts/install-deps.sh

build: deps
	cmake --preset default
	cmake --build --preset default -j $(JOBS)

build-asan: deps
	cmake --preset asan
	cmake --build --preset asan -j $(JOBS)

demo: build
	@sh examples/demo.sh build/quillard

test: build build-asan
	ctest --preset default -j $(JOBS)
	ctest --preset asan -j $(JOBS)
