// A tiny shared library for the dynamic module tests.
extern "C" int quorel_test_answer() { return 42; }

// A symbol whose value is null: an indirect function whose resolver
// answers with no implementation, so dlsym finds it and returns null.
extern "C" {
typedef void (*Function)();
static Function nothing() { return nullptr; }
void quorel_test_null() __attribute__((ifunc("nothing")));
}
