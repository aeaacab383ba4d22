-- Row for row in an EUC_JP database: Shift_JIS rows arrive through
-- client_encoding SJIS and the server converts them; `txscan apply` answers
-- over the same rows in EUC-JP.
CREATE EXTENSION txscan;
SELECT getdatabaseencoding();
\getenv rows TXSCAN_ROWS
\set people :rows '/people-sjis.csv'
\set applied :rows '/applied-eucjp.csv'
CREATE TABLE people (id integer PRIMARY KEY, name text, address text, comment text);
SET client_encoding = 'SJIS';
COPY people FROM :'people' WITH (FORMAT csv, HEADER);
SET client_encoding = 'EUC_JP';
\getenv sql TXSCAN_SQL
\set compare :sql '/include/compare.sql'
\i :compare
RESET client_encoding;
-- Characters, not bytes: in 日本の, の is the third character (its fifth byte).
SELECT kfind(convert_from('\xc6fccbdca4ce', 'EUC_JP'), convert_from('\xa4ce', 'EUC_JP')) AS kfind_eucjp;
