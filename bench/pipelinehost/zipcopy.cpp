// zipcopy.cpp: copies a ZIP archive entry by entry with libzip, on one thread. The baselines
// the whole-job benchmarks compare the pipeline with:
//   zipcopy IN OUT                 each entry as its compressed bytes (no inflate, no deflate):
//                                  the least work any tool must do to rewrite a package;
//   zipcopy --recompress N IN OUT  each entry inflated and deflated again at level N: the least
//                                  work of a filter that rewrites every part.
#include <zip.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

int main(int argc, char** argv) {
    int level = -1;  // -1: copy the compressed bytes
    if (argc == 5 && std::strcmp(argv[1], "--recompress") == 0) {
        level = std::atoi(argv[2]);
        argv += 2;
        argc -= 2;
    }
    if (argc != 3 || level > 9 || (level < 1 && level != -1)) {
        std::fprintf(stderr, "usage: zipcopy [--recompress LEVEL] IN OUT\n");
        return 2;
    }
    int error = 0;
    zip_t* in = zip_open(argv[1], ZIP_RDONLY, &error);
    if (in == nullptr) {
        std::fprintf(stderr, "zipcopy: cannot open %s\n", argv[1]);
        return 1;
    }
    zip_t* out = zip_open(argv[2], ZIP_CREATE | ZIP_TRUNCATE, &error);
    if (out == nullptr) {
        std::fprintf(stderr, "zipcopy: cannot create %s\n", argv[2]);
        return 1;
    }
    zip_int64_t count = zip_get_num_entries(in, 0);
    for (zip_int64_t i = 0; i < count; ++i) {
        const char* name = zip_get_name(in, static_cast<zip_uint64_t>(i), 0);
        // A source over the whole item (start 0, length -1) hands out its compressed bytes; one
        // over an explicit length hands out the inflated content, which libzip deflates again
        // with the entry's compression settings when the archive is written.
        zip_int64_t length = -1;
        if (level > 0) {
            zip_stat_t st;
            zip_stat_init(&st);
            if (zip_stat_index(in, static_cast<zip_uint64_t>(i), 0, &st) != 0) {
                std::fprintf(stderr, "zipcopy: cannot read entry %lld\n", static_cast<long long>(i));
                return 1;
            }
            if (st.size > 0) length = static_cast<zip_int64_t>(st.size);
        }
        zip_source_t* source = zip_source_zip(out, in, static_cast<zip_uint64_t>(i), 0, 0, length);
        const zip_int64_t added = source == nullptr ? -1 : zip_file_add(out, name, source, 0);
        if (name == nullptr || added < 0 ||
            (level > 0 && zip_set_file_compression(out, static_cast<zip_uint64_t>(added),
                                                   ZIP_CM_DEFLATE,
                                                   static_cast<zip_uint32_t>(level)) != 0)) {
            std::fprintf(stderr, "zipcopy: cannot copy entry %lld\n", static_cast<long long>(i));
            return 1;
        }
    }
    if (zip_close(out) != 0) {
        std::fprintf(stderr, "zipcopy: cannot write %s\n", argv[2]);
        return 1;
    }
    zip_discard(in);
    return 0;
}
