-- Row for row: every function over the generated rows equals `txscan apply`
-- over the same rows (UTF-8 session).
CREATE EXTENSION IF NOT EXISTS txscan;
\getenv rows TXSCAN_ROWS
\set people :rows '/people.csv'
\set applied :rows '/applied.csv'
CREATE TABLE people (id integer PRIMARY KEY, name text, address text, comment text);
COPY people FROM :'people' WITH (FORMAT csv, HEADER);
\getenv sql TXSCAN_SQL
\set compare :sql '/include/compare.sql'
\i :compare
