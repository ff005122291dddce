# The two commands of the README.
.PHONY: demo test deps build clean

deps:
	bash scripts/install-deps.sh

build: deps
	cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo
	cmake --build build -j$$(nproc)

demo: deps
	bash scripts/run-demo.sh $(ARGS)

test: deps
	bash scripts/run-tests.sh

clean:
	rm -rf build build-asan build-tsan out
