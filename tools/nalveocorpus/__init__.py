"""Analyses whole collections of recordings with the library nalveo.

settings     options of the analyser, as the library takes them
recordings   finds recordings, reads them, has sox convert what is not plain
results      names of results, whether they are finished, writing them whole or not at all
state        what OUT_DIR/.nalveo16-corpus holds: manifest, locks, journals
table        the table of the corpus, made of the journals
run          the threads that do the work
work        what of a corpus is to be done, and the report at the end
hosts        slices on other machines, by GNU parallel
commandline  puts it together
"""
