# The two commands of the README.
.PHONY: demo test deps build clean fuzz-long lifecycle valgrind

deps:
	bash scripts/install-deps.sh

build: deps
	cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo
	cmake --build build -j$$(nproc)

demo: deps
	bash scripts/run-demo.sh $(ARGS)

test: deps
	bash scripts/run-tests.sh

# Opt-in long runs, beside the bounded ones of `make test`.
# Ten minutes of each fuzz target, from the corpus the last runs left.
fuzz-long: deps
	bash scripts/run-fuzz.sh 600

# 1,000 display lives in one process under ASan, no growth of threads,
# files or memory.
lifecycle: deps
	bash scripts/run-long.sh lifecycle

# A few display lives under valgrind's memcheck, Mesa's noise suppressed.
valgrind: deps
	bash scripts/run-long.sh valgrind

clean:
	rm -rf build build-asan build-tsan build-fuzz build-plain out
