/* Analyses a buffer of samples by the C interface: a second of a voice that is made up, so that the
 * printed values can be held against what went in. */

#include <math.h>
#include <nalveo.h>
#include <stdio.h>
#include <stdlib.h>

enum { NSAMPLES = 48000 };

static const double fs = 48000.0; /* Hz */
static const double voice_f0 = 123.0;
static const double harmonics_end = 4000.0;
static const double twopi = 6.283185307179586;

/* Amplitude of the harmonic at a frequency in Hz: -6 dB per octave above 500 Hz. */
static double amplitude(double f) { return 0.1 / (1.0 + f / 500.0); }

static void make_voice(double *x) {
    uint32_t seed = 1;
    for (int n = 0; n < NSAMPLES; ++n) {
        seed = seed * 1664525u + 1013904223u;
        x[n] = 0.02 * (seed / 4294967296.0 - 0.5);
        for (double f = voice_f0; f < harmonics_end; f += voice_f0)
            x[n] += amplitude(f) * cos(twopi * f * n / fs + f);
    }
}

static double *new_array(size_t count) {
    double *array = malloc(count * sizeof *array);
    if (array == NULL) exit(EXIT_FAILURE);
    return array;
}

int main(void) {
    nalveo_options options;
    nalveo_default_options(&options, sizeof options);
    options.fs = fs;
    options.refine = 5;

    double *x = new_array(NSAMPLES);
    make_voice(x);
    size_t nframes = nalveo_frame_count(NSAMPLES, &options);
    double *f0 = new_array(nframes);
    double *fv = new_array(nframes);
    double *cc = new_array(nframes * (options.order + 1));
    int code = nalveo_analyse(x, NSAMPLES, &options, f0, cc, fv);

    double frequencies[] = {5 * voice_f0, 10 * voice_f0, 20 * voice_f0};
    double levels[3];
    size_t middle = nframes / 2;
    if (code == NALVEO_OK)
        code =
            nalveo_envelope(cc + middle * (options.order + 1), 1, &options, frequencies, 3, levels);
    if (code != NALVEO_OK) {
        fprintf(stderr, "%s\n", nalveo_error_text(code));
        return EXIT_FAILURE;
    }
    printf("frames  %zu\n", nframes);
    printf("f0      %.2f Hz, made with %.2f Hz\n", f0[middle], voice_f0);
    printf("voiced  up to %.0f Hz, made with harmonics below %.0f Hz\n", fv[middle], harmonics_end);
    /* The envelope is a density: half a harmonic's amplitude over the root of f0. */
    for (int i = 0; i < 3; ++i)
        printf("at %4.0f Hz the envelope is %.1f dB, made with %.1f dB\n", frequencies[i],
               8.685889638 * levels[i],
               8.685889638 * log(amplitude(frequencies[i]) / 2.0 / sqrt(voice_f0)));
    free(x);
    free(f0);
    free(fv);
    free(cc);
    return EXIT_SUCCESS;
}
