-- The functions in an expression index, a generated column and a parallel
-- scan.
CREATE EXTENSION IF NOT EXISTS txscan;
CREATE TABLE words (id integer, line text);
INSERT INTO words SELECT i, (ARRAY['Anna Müller', 'José García', '山田 太郎', 'Zoë O''Brien'])[i % 4 + 1] || ' ' || i
FROM generate_series(1, 20000) AS i;
-- An expression index that the planner uses and that answers as the scan does.
CREATE INDEX words_second ON words (kscanx(line, 2));
ANALYZE words;
SET enable_seqscan = off;
EXPLAIN (COSTS OFF) SELECT count(*) FROM words WHERE kscanx(line, 2) = 'García';
SELECT count(*) FROM words WHERE kscanx(line, 2) = 'García';
RESET enable_seqscan;
SET enable_indexscan = off;
SET enable_bitmapscan = off;
SELECT count(*) FROM words WHERE kscanx(line, 2) = 'García';
RESET enable_indexscan;
RESET enable_bitmapscan;
-- A generated column, filled on insert and on update.
ALTER TABLE words ADD COLUMN word_count integer GENERATED ALWAYS AS (kcountw(line)) STORED;
SELECT word_count, count(*) FROM words GROUP BY word_count ORDER BY word_count;
UPDATE words SET line = 'one' WHERE id = 1;
SELECT word_count FROM words WHERE id = 1;
-- A parallel scan: two workers (each loads the module itself) give the
-- rows a serial scan gives.
SET max_parallel_workers_per_gather = 2;
SET parallel_setup_cost = 0;
SET parallel_tuple_cost = 0;
SET min_parallel_table_scan_size = 0;
SET parallel_leader_participation = off;
-- The workers compute the functions (the scan's projection and filter)...
EXPLAIN (COSTS OFF) CREATE TABLE in_parallel AS
SELECT id, kcountw(line) AS w, kfind(line, 'a', 'i') AS f, kscanx(line, -1) AS last FROM words
WHERE kfindc(line, '0123456789') > 0;
-- ... and two of them are launched.
DO $$ DECLARE plan json; BEGIN
  EXECUTE 'EXPLAIN (ANALYZE, FORMAT JSON) SELECT kcountw(line) FROM words WHERE kfindc(line, ''0123456789'') > 0' INTO plan;
  RAISE NOTICE 'workers launched: %', plan -> 0 -> 'Plan' ->> 'Workers Launched';
END $$;
CREATE TABLE in_parallel AS
SELECT id, kcountw(line) AS w, kfind(line, 'a', 'i') AS f, kscanx(line, -1) AS last FROM words
WHERE kfindc(line, '0123456789') > 0;
SET max_parallel_workers_per_gather = 0;
CREATE TABLE serial AS
SELECT id, kcountw(line) AS w, kfind(line, 'a', 'i') AS f, kscanx(line, -1) AS last FROM words
WHERE kfindc(line, '0123456789') > 0;
SELECT (SELECT count(*) FROM in_parallel) AS rows,
       (SELECT count(*) FROM (TABLE in_parallel EXCEPT TABLE serial) AS d) AS only_parallel,
       (SELECT count(*) FROM (TABLE serial EXCEPT TABLE in_parallel) AS d) AS only_serial;
