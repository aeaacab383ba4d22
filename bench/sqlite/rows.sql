-- Rows of names, addresses and free text (ASCII, accented Latin, CJK) for the SQL tests and benchmark: fills
-- people(id, name, address, note) with as many rows as the parameter asks. One statement, no semicolon inside.
WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < :rows),
words(first, last, street, city, phrase) AS (SELECT
  '["Anna","José","Zoë","Marie-Claire","Øyvind","Tomás","佐藤","Li Wei","François","Ángel"]',
  '["Müller","Dupont","García","O''Brien","Nguyễn","山田","Smith","Kowalski","Lefèvre","Ødegård"]',
  '["Hauptstraße","rue de la Paix","Calle Mayor","Main Street","銀座通り","Via Roma","Åsgatan","Ring Road"]',
  '["Köln","Paris","Sevilla","Boston","東京","Roma","Malmö","Łódź"]',
  '["delivered on time, thanks","paquete dañado, reembolso pedido","お届けありがとうございます","call back after 5pm",
    "naïve café order, extra crème brûlée","no answer — left a note","重复订单 please cancel","fragile: glass",
    "über-fast shipping!","address unclear, see map"]')
INSERT INTO people(id, name, address, note)
SELECT i,
  json_extract(first, '$[' || (i % 10) || ']') || ' ' || json_extract(last, '$[' || (i / 10 % 10) || ']'),
  (i % 50 + 1) || ' ' || json_extract(street, '$[' || (i / 7 % 8) || ']') || ', ' ||
    json_extract(city, '$[' || (i / 3 % 8) || ']'),
  json_extract(phrase, '$[' || (i % 10) || ']') || ' / ' || json_extract(phrase, '$[' || (i / 100 % 10) || ']')
FROM n, words
