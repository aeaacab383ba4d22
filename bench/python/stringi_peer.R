# The stringi peer of bench_python.py: the same rows, the nearest stringi
# call for each function, seconds per call printed as "name seconds".
suppressMessages(library(stringi))
args <- commandArgs(trailingOnly = TRUE)
x <- readLines(args[1], encoding = "UTF-8")
timed <- function(name, expr) {
  seconds <- system.time(force(expr))[["elapsed"]]
  cat(name, seconds, "\n")
}
timed("kfind", stri_locate_first_fixed(x, "e")[, 1])
timed("kcountx", stri_count_fixed(x, "an"))
timed("kfindc", stri_locate_first_regex(x, "[,.]")[, 1])
timed("kcountc", stri_count_regex(x, "[aeiou]"))
timed("kcountw", stri_count_regex(x, "[^ ]+"))
timed("kfindw", stri_locate_first_regex(x, "\\bthe\\b")[, 1])
timed("kscanx", stri_extract_last_regex(x, "[^ ]+"))
timed("kscanx_call", stri_locate_first_regex(x, "(?<=^[^ ]{0,200} )[^ ]+")[, 1])
