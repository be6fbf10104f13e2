-- wrk script: every request is the Check a daemon sends, byte for byte.
wrk.method = "POST"
wrk.headers["Content-Type"] = "text/xml; charset=utf-8"
wrk.headers["SOAPAction"] = "http://kora.olvara.com/ns/KORA/Check"
wrk.headers["User-Agent"] = "Tarvo/0.2 OSX"
wrk.body = [[<?xml version="1.0"?>
<soap:Envelope xmlns:soap="http://schemas.xmlsoap.org/soap/envelope/" xmlns:xsl="http://www.w3.org/1999/XSL/Transform" xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance" xmlns:xsd="http://www.w3.org/2001/XMLSchema" xmlns:KORA="http://kora.olvara.com/ns/KORA" xmlns:s1="http://microsoft.com/wsdl/types/" xsl:version="1.0">
  <soap:Body>
    <KORA:Check>
      <KORA:InstallationID>5B2C1E9A-0D3F-4C4B-9E57-2A6B1F0C7D11</KORA:InstallationID>
      <KORA:ProductID>bench-product</KORA:ProductID>
      <KORA:HardwareUUID>6F1D2C3B-4A59-4E8F-8123-9ABCDEF01234</KORA:HardwareUUID>
      <KORA:Username></KORA:Username>
      <KORA:MobileNo></KORA:MobileNo>
      <KORA:CustomerNo></KORA:CustomerNo>
      <KORA:OperatingSystem>Linux</KORA:OperatingSystem>
      <KORA:OSEdition>Debian GNU/Linux 12 (bookworm)</KORA:OSEdition>
      <KORA:ServicePack>0</KORA:ServicePack>
      <KORA:OSArchitecture></KORA:OSArchitecture>
      <KORA:SystemType>Standard PC (Q35 + ICH9, 2009)</KORA:SystemType>
      <KORA:SystemArchitecture></KORA:SystemArchitecture>
      <KORA:Region>Europe</KORA:Region>
      <KORA:Country>FI</KORA:Country>
      <KORA:Brand>Acme</KORA:Brand>
      <KORA:Version>1.4.2</KORA:Version>
      <KORA:AdditionalInfo>Status=INSTALLED;</KORA:AdditionalInfo>
    </KORA:Check>
  </soap:Body>
</soap:Envelope>
]]
