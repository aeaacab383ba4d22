# The R peer: stringi over the rows compare.py hands it, one line per
# function as "RESULT SET FUNCTION stringi ns_per_row" (best of three).
#   Rscript stringi_peer.R ROWS_FILE SET
suppressMessages(library(stringi))
arguments <- commandArgs(trailingOnly = TRUE)
rows <- stri_read_lines(arguments[1], encoding = "UTF-8")
set <- arguments[2]
best <- function(f) {
  t <- Inf
  for (i in 1:3) {
    start <- as.numeric(Sys.time())
    invisible(f())
    t <- min(t, as.numeric(Sys.time()) - start)
  }
  t
}
peers <- list(
  KFIND = function() stri_locate_first_fixed(rows, "an")[, 1],
  KCOUNTX = function() stri_count_fixed(rows, "an"),
  KFINDC = function() stri_locate_first_charclass(rows, "[xyz.,]")[, 1],
  KCOUNTC = function() stri_count_charclass(rows, "[aeiou]"),
  KCOUNTW = function() stri_count_regex(rows, "[^ ,]+"),
  KFINDW = function() stri_locate_first_regex(rows, "(?<![^ ])de(?![^ ])")[, 1],
  KSCANX = function() stri_split_charclass(rows, "[ ,]", omit_empty = TRUE, simplify = TRUE)[, 2],
  KSCANX_LAST = function() stri_extract_last_regex(rows, "[^ ,]+"),
  # The calls that bench_engine also sets against its plain loops.
  KFIND_Street = function() stri_locate_first_fixed(rows, "Street")[, 1],
  KCOUNTX_the = function() stri_count_fixed(rows, "the"),
  KFINDC_d = function() stri_locate_first_charclass(rows, "[0-9]")[, 1],
  KCOUNTC_d = function() stri_count_charclass(rows, "[0-9]"),
  KCOUNTW_default = function() stri_count_regex(rows, "[^ !$%&()*+,\\-./;<^|]+"),
  `KSCANX_-1` = function() stri_extract_last_regex(rows, "[^ !$%&()*+,\\-./;<^|]+"),
  KFINDW_the = function() stri_locate_first_regex(rows, "(?<![^ !$%&()*+,\\-./;<^|])the(?![^ !$%&()*+,\\-./;<^|])")[, 1]
)
# A peer that cannot run on a set (the second word of one-character rows)
# is left out of that set's table.
for (name in names(peers)) {
  t <- tryCatch(best(peers[[name]]), error = function(e) NA)
  if (!is.na(t)) cat(sprintf("RESULT %s %s stringi %.2f\n", set, name, t * 1e9 / length(rows)))
}
