// Sanitizer settings of the test programs: a failed huge allocation must come
// back as null, so that the allocator's own exhaustion path can be tested.
extern "C" const char *__asan_default_options()
{
    return "allocator_may_return_null=1:detect_leaks=1";
}
extern "C" const char *__ubsan_default_options()
{
    return "print_stacktrace=1:halt_on_error=1";
}
