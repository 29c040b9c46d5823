"""The parts of nalveo16-plot, which draws what nalveo16 found in a recording.

recording     recordings and tracks, checked against each other
spectra       levels, envelopes and what is left of a track in one column of pixels
style         colours, lines and outlines that the pictures share
overview      a recording in rows of lanes on one time axis
frame         one frame: its spectrum, and envelopes over it
corpus        the table of a collection: histograms, and the files that stand apart
page          the interactive page; page.html, page.css, drawing.js and page.js are its parts
options       of the program, and which go together
commandline   outputs and messages
"""
